#pragma once

#include <QString>

// Launch at login for this application, through the login item "com.corvin.VantreloLaunch".
// Also keeps the older mechanism based on the session login-items list, which the application
// no longer calls.
class LLStartUpItemConfig {
public:
    LLStartUpItemConfig() = delete;

    static QString identifier();

    // Registers or unregisters the login item; true when the request was carried out (also for a
    // successful request to switch off).
    static bool setStartAtLogin(bool flag);
    static bool isStartAtLogin();

    static void setStartUpState(bool flag);
    // Adds the running program to the session login-items list.
    static void installStartUp();
    // Removes every session login item of a program with this program's file name, wherever
    // that program lives.
    static void deleteStartUp();
};
