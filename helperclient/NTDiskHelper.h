#pragma once

#include "disk/NTDiskDrive.h"

#include <QString>

// Disk operations that need no helper: opening a volume in the file manager, and mounting,
// unmounting, renaming and ejecting through udisks2. Fire and forget: nothing is reported back;
// the disk list shows the outcome when the mount table changes.
class NTDiskHelper {
public:
    NTDiskHelper() = delete;

    static void openDisk(const QString &path);
    // Unmounts and ejects the device behind the drive's mount path, in the background.
    static void ejectDiskWithDrive(const NTDiskDrivePtr &drive);
    // The udisks2 requests run in the background too, so a slow disk never stalls the caller.
    static void unmountDiskWithBSDName(const QString &bsdName);
    static void mountDiskWithBSDName(const QString &bsdName);
    static void rename(const QString &bsdName, const QString &newName);
};
