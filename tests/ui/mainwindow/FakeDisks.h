#pragma once

#include "disk/DiskSystem.h"

#include <QHash>
#include <QMutex>

// A machine's volumes without the machine: a mount table, the devices behind it and their sizes,
// for a disk manager that tests and pictures make their own.
class FakeDisks final : public MountTable, public BlockDevices, public VolumeSpaceReader {
public:
    struct Volume {
        QString device; // kernel name
        QString path;
        QString label;
        QString fsType; // as the superblock names it
        bool external = false;
        bool readOnly = false;
    };

    void add(const Volume &volume) {
        QMutexLocker lock(&m_mutex);
        m_volumes.append(volume);
    }

    QList<MountEntry> read() const override {
        QMutexLocker lock(&m_mutex);
        QList<MountEntry> entries;
        for (const Volume &v : m_volumes) {
            const int id = int(entries.size()) + 100;
            entries.append(
                {id, 1, quint64(id), QStringLiteral("/dev/") + v.device, v.path,
                 v.fsType == QStringLiteral("ntfs") ? QStringLiteral("fuseblk") : v.fsType,
                 QStringLiteral("/"), v.readOnly ? QStringLiteral("ro") : QStringLiteral("rw")});
        }
        return entries;
    }
    std::optional<BlockDeviceFacts> deviceForMount(const MountEntry &entry) const override {
        return deviceNamed(entry.source.section(u'/', -1));
    }
    std::optional<BlockDeviceFacts> deviceNamed(const QString &kernelName) const override {
        QMutexLocker lock(&m_mutex);
        for (const Volume &v : m_volumes)
            if (v.device == kernelName)
                return BlockDeviceFacts{v.device, v.external, true, false, v.fsType, {}, v.label};
        return std::nullopt;
    }
    std::optional<VolumeSpace> read(const QString &mountPath) const override {
        QMutexLocker lock(&m_mutex);
        for (const Volume &v : m_volumes)
            if (v.path == mountPath)
                return VolumeSpace{64'000'000'000, 21'500'000'000, v.readOnly};
        return std::nullopt;
    }

    static DiskSystem system(const std::shared_ptr<FakeDisks> &disks) {
        return {disks, disks, disks, [] { return QStringLiteral("testhost"); }};
    }

private:
    mutable QMutex m_mutex;
    QList<Volume> m_volumes;
};
