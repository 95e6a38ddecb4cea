#pragma once

#include "disk/MountTable.h"

#include <QString>

#include <optional>

// What the system knows about the block device behind a volume.
struct BlockDeviceFacts {
    QString kernelName;    // "sdb1", "nvme0n1p1", "loop3", "dm-0"
    bool external = false; // removable media, USB/FireWire/Thunderbolt/MMC bus, or a loop image
    bool mediaWritable = false; // the device's read-only flag is clear
    bool encrypted = false;     // a dm-crypt mapping
    QString fsType;             // from the file system's own superblock
    QString uuid;
    QString label;
};

class BlockDevices {
public:
    virtual ~BlockDevices() = default;
    // The device a mount comes from, or nothing for mounts without one (tmpfs, proc, network).
    virtual std::optional<BlockDeviceFacts> deviceForMount(const MountEntry &entry) const = 0;
    virtual std::optional<BlockDeviceFacts> deviceNamed(const QString &kernelName) const = 0;
};
