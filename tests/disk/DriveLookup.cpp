#include "tests/disk/DriveLookup.h"

NTDiskDrivePtr driveAt(const NTDiskDriveList &drives, const QString &mountPath) {
    for (const auto &drive : drives)
        if (drive->mountPath() == mountPath)
            return drive;
    return nullptr;
}
