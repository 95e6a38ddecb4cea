#pragma once

#include "disk/NTDiskDrive.h"

// The record listed at `mountPath`, or null.
NTDiskDrivePtr driveAt(const NTDiskDriveList &drives, const QString &mountPath);
