#pragma once

#include <QString>

#include <optional>

struct VolumeSpace {
    qint64 totalBytes = 0;
    qint64 availableBytes = 0; // what an unprivileged user may still use
    bool readOnly = false;
};

class VolumeSpaceReader {
public:
    virtual ~VolumeSpaceReader() = default;
    virtual std::optional<VolumeSpace> read(const QString &mountPath) const = 0;
};

class StatvfsSpaceReader final : public VolumeSpaceReader {
public:
    std::optional<VolumeSpace> read(const QString &mountPath) const override;
};
