#pragma once

#include <QObject>

#include <memory>
#include <optional>

// The desktop's colour-scheme preference (0 none, 1 dark, 2 light), as the freedesktop
// appearance portal publishes it.
class AppearancePortal : public QObject {
    Q_OBJECT
public:
    // The portal of the session bus; without a session bus or portal it answers nothing.
    static std::unique_ptr<AppearancePortal> createSessionPortal();

    // Asked once; nothing when no portal answered in time.
    virtual std::optional<uint> readColorScheme() = 0;

Q_SIGNALS:
    void colorSchemeChanged(uint scheme);
};
