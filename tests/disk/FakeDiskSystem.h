#pragma once

#include "disk/DiskSystem.h"
#include "disk/FsProbe.h"

#include <QHash>
#include <QSet>
#include <QTemporaryDir>

#include <atomic>
#include <memory>

// A sysfs tree of a desktop with an NVMe system disk, a USB disk with two partitions, a card
// reader, a SATA data disk and two loop images, built in a temporary folder.
class FakeSysfs {
public:
    FakeSysfs();
    QString root() const { return m_dir.path(); }
    // Adds /sys/devices/<devicePath>, its class/block and dev/block links and attributes.
    void addDevice(const QString &devicePath, const QString &devno, int ro, int removable,
                   bool partition);

private:
    void writeFile(const QString &path, const QByteArray &content);
    QTemporaryDir m_dir;
};

class FakeFsProbe final : public FsProbe {
public:
    FsIdentity probe(const QString &devicePath) const override;
    void set(const QString &devicePath, const FsIdentity &identity) {
        m_identities.insert(devicePath, identity);
    }
    int calls(const QString &devicePath) const { return m_calls.value(devicePath); }

private:
    QHash<QString, FsIdentity> m_identities;
    mutable QHash<QString, int> m_calls;
};

class FakeSpaceReader final : public VolumeSpaceReader {
public:
    std::optional<VolumeSpace> read(const QString &mountPath) const override;
    QSet<QString> readOnly;
    QSet<QString> unreadable;
};

// A mount table whose content a test replaces between reads.
class SwappableMountTable final : public MountTable {
public:
    explicit SwappableMountTable(QList<MountEntry> entries)
        : m_entries(std::move(entries)) {}
    QList<MountEntry> read() const override { return m_entries; }
    void replace(QList<MountEntry> entries) { m_entries = std::move(entries); }

private:
    QList<MountEntry> m_entries;
};

struct FakeDiskSystem {
    FakeDiskSystem();
    DiskSystem system() const;

    FakeSysfs sysfs;
    std::shared_ptr<FakeFsProbe> probe = std::make_shared<FakeFsProbe>();
    std::shared_ptr<FakeSpaceReader> space = std::make_shared<FakeSpaceReader>();
    std::shared_ptr<SwappableMountTable> table;
    std::shared_ptr<BlockDevices> devices;
};

QList<MountEntry> desktopMountTable();
