#pragma once

#include "disk/BlockDevices.h"
#include "disk/MountTable.h"
#include "disk/VolumeSpace.h"

#include <functional>
#include <memory>

// Everything the disk manager asks of the system, so tests can hand it a fixture instead.
struct DiskSystem {
    std::shared_ptr<const MountTable> mountTable;
    std::shared_ptr<const BlockDevices> blockDevices;
    std::shared_ptr<const VolumeSpaceReader> volumeSpace;
    std::function<QString()> hostName;

    // The running machine: /proc/self/mountinfo, /sys, udev's database, libblkid, statvfs.
    static DiskSystem local();
};
