#pragma once

#include <QString>

// Stateless helpers shared by every layer.
class TLUtility {
public:
    TLUtility() = delete;

    // Presence of the installed helper and FUSE NTFS driver, looked up afresh on every call.
    static bool checkHelperAppInstalled();
    static bool checkFuseInstalled();
    // The version file beside the helper, trimmed; "" when the helper or the file is unreadable.
    static QString getHelperAppVersion();
};
