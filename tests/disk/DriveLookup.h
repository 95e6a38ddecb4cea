#pragma once

#include "disk/NTDiskDrive.h"

// The record listed at `mountPath`, or null.
inline NTDiskDrivePtr driveAt(const NTDiskDriveList &drives, const QString &mountPath) {
    for (const auto &drive : drives)
        if (drive->mountPath() == mountPath)
            return drive;
    return nullptr;
}
