#pragma once

#include <QString>

#include <chrono>

namespace helper {

// What file system a device holds, read in-process (no tool to start on the hot path).
class VolumeProbe {
public:
    struct Volume {
        QString type; // libblkid's TYPE, "" when nothing was recognized
        QString label;
        QString failure; // why the device could not be read, "" when it was
    };
    virtual ~VolumeProbe() = default;
    virtual Volume probe(const QString &devicePath) const = 0;
};

// Reads in a child process, so a device whose reads never return costs a stuck child that is
// killed at the limit, not a thread of the helper.
class BlkidVolumeProbe : public VolumeProbe {
public:
    explicit BlkidVolumeProbe(std::chrono::milliseconds limit = std::chrono::seconds(30));
    Volume probe(const QString &devicePath) const override;

private:
    std::chrono::milliseconds m_limit;
};

} // namespace helper
