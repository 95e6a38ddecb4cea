#pragma once

#include "disk/FsProbe.h"

class BlkidFsProbe final : public FsProbe {
public:
    FsIdentity probe(const QString &devicePath) const override;
};
