#pragma once

#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>

class AppearancePortal;

// The one test for the dark appearance, and the one "theme changed" notification.
class LLDrakMode : public QObject {
    Q_OBJECT
public:
    // "AppleInterfaceStyle" in the global defaults when set (dark when it equals "dark" ignoring
    // case); else the desktop portal's color-scheme (1 is dark) when a session bus has the
    // portal; else whether the palette's window colour is dark.
    static bool isDarkMode();
    // What the user default or the portal asks for; nothing when neither says.
    static std::optional<bool> preferredDarkMode();

    // The application-wide notifier; created on the first call on the main thread.
    static LLDrakMode *shared();

    // Follows this portal instead of the session bus's one, reading its scheme now.
    static void setPortal(std::unique_ptr<AppearancePortal> portal);

Q_SIGNALS:
    // Raised once per change of palette, style theme or portal colour scheme.
    void themeChanged();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    LLDrakMode();
    ~LLDrakMode() override;
    void follow(std::unique_ptr<AppearancePortal> portal);
    void portalSchemeChanged(uint scheme);

    std::unique_ptr<AppearancePortal> m_portal;
    std::optional<uint> m_portalScheme;
    // One change reaches many objects (each window gets its ThemeChange) and may come from the
    // palette and the portal at once: they are told as one.
    QTimer m_coalesce;
};
