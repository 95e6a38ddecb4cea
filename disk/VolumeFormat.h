#pragma once

#include <QString>

// The name a person knows a file system by, for the kernel's or libblkid's type name.
QString readableFormatName(const QString &fsType);

// The one NTFS test of the disk list: the description or the device's file-system type mentions
// NTFS in any case.
bool mentionsNtfs(const QString &text);

inline QString windowsNtfsDescription() {
    return QStringLiteral("Windows NTFS");
}
