#pragma once

#include <QObject>

// The one test for the dark appearance, and the one "theme changed" notification.
class LLDrakMode : public QObject {
    Q_OBJECT
public:
    // "AppleInterfaceStyle" in the global defaults when set (dark when it equals "dark" ignoring
    // case); else the desktop portal's color-scheme (1 is dark) when a session bus has the
    // portal; else whether the palette's window colour is dark.
    static bool isDarkMode();

    // The application-wide notifier; created on the first call on the main thread.
    static LLDrakMode *shared();

Q_SIGNALS:
    // Raised once per change of palette, style theme or portal colour scheme.
    void themeChanged();
};
