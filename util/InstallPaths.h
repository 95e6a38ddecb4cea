#pragma once

#include <QString>

// Where the installed pieces the application looks for live. Every check reads its path from
// here, so tests can point a piece at a scratch folder and the install rules agree with the checks.
class InstallPaths {
public:
    enum class Component {
        HelperExecutable,  // the vantrelo-helper daemon
        HelperVersionFile, // text file beside the helper holding its version
        Ntfs3gDriver,      // FUSE NTFS driver
        FuseDevice,        // /dev/fuse
        HelperSocket,      // the helper's listening socket
    };

    InstallPaths() = delete;

    static QString path(Component component);
    // Replaces a path for this process; an empty string restores the default.
    static void setOverride(Component component, const QString &path);
    static void clearOverrides();

    static QString helperExecutable() { return path(Component::HelperExecutable); }
    static QString helperVersionFile() { return path(Component::HelperVersionFile); }
    static QString ntfs3gDriver() { return path(Component::Ntfs3gDriver); }
    static QString fuseDevice() { return path(Component::FuseDevice); }
    // VANTRELO_HELPER_SOCKET, when set and not empty, wins over the built-in default.
    static QString helperSocket() { return path(Component::HelperSocket); }

    static QString defaultPath(Component component);
};
