#pragma once

#include <QString>

// What the file system on a device says about itself.
struct FsIdentity {
    QString type; // libblkid TYPE: "ntfs", "ext4", ...
    QString uuid;
    QString label;
};

class FsProbe {
public:
    virtual ~FsProbe() = default;
    // Empty fields when the device cannot be read (no permission, gone, no file system).
    virtual FsIdentity probe(const QString &devicePath) const = 0;
};
