#pragma once

#include "disk/FsProbe.h"

// What libblkid's cache last recorded for the device, read as it is: nothing is probed, verified
// or written back, so it answers for devices this account cannot open.
class BlkidCacheFsProbe final : public FsProbe {
public:
    // An empty path reads libblkid's default cache.
    explicit BlkidCacheFsProbe(QString cacheFile = {});

    FsIdentity probe(const QString &devicePath) const override;

private:
    QString m_cacheFile;
};
