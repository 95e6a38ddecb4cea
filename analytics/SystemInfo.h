#pragma once

#include <QString>

// Machine facts attached to every usage event.
class SystemInfo {
public:
    SystemInfo() = delete;

    static constexpr const char *kSerialNumberPath = "/sys/class/dmi/id/product_serial";

    // The firmware's serial number, trimmed; "" when the file is missing or unreadable (it is
    // readable by root only on most machines).
    static QString serialNumber(const QString &path = QString::fromLatin1(kSerialNumberPath));
    // "major.minor.patch" of the running kernel.
    static QString systemVersion();
    // "6.1.0-13-amd64" -> "6.1.0", "5.15" -> "5.15.0"; a part that is missing or not a number
    // reads as 0.
    static QString versionFromRelease(QStringView release);
};
