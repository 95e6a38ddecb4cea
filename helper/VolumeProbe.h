#pragma once

#include <QString>

namespace helper {

// What file system a device holds, read in-process (no tool to start on the hot path).
class VolumeProbe {
public:
    struct Volume {
        QString type; // libblkid's TYPE, "" when nothing was recognized
        QString label;
    };
    virtual ~VolumeProbe() = default;
    virtual Volume probe(const QString &devicePath) const = 0;
};

class BlkidVolumeProbe : public VolumeProbe {
public:
    Volume probe(const QString &devicePath) const override;
};

} // namespace helper
