#pragma once

#include "disk/FsProbe.h"

#include <QByteArray>

// What udevd found on the device, from its database: readable by every account, unlike the
// device node. Empty where udevd does not run or has not seen the device.
class UdevFsProbe final : public FsProbe {
public:
    FsIdentity probe(const QString &devicePath) const override;
};

// udev's encoding of unsafe bytes in ID_FS_LABEL_ENC and the like: "\x20" for a space.
QString decodeUdevString(const QByteArray &encoded);
