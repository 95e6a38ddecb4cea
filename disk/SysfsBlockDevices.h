#pragma once

#include "disk/BlockDevices.h"
#include "disk/FsProbe.h"

#include <memory>

// Device facts from sysfs (a real /sys or a fixture tree) and a file-system probe.
class SysfsBlockDevices final : public BlockDevices {
public:
    SysfsBlockDevices(QString sysRoot, std::shared_ptr<const FsProbe> probe);

    std::optional<BlockDeviceFacts> deviceForMount(const MountEntry &entry) const override;
    std::optional<BlockDeviceFacts> deviceNamed(const QString &kernelName) const override;

    // The kernel name of the device node at `source` after following links, if it is a block
    // device that sysfs knows.
    QString kernelNameForSource(const QString &source) const;

private:
    QString kernelNameForDevno(quint64 devno) const;
    bool isExternal(const QString &kernelName, const QString &devicePath,
                    const QString &diskPath) const;

    QString m_sysRoot;
    std::shared_ptr<const FsProbe> m_probe;
};
