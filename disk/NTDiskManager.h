#pragma once

#include "disk/DiskSystem.h"
#include "disk/NTDiskDrive.h"

#include <QHash>
#include <QObject>

class MountMonitor;
class BlockEventMonitor;

// Receives volumes as they come and go, on the main thread.
class DiskMountDelegate {
public:
    virtual ~DiskMountDelegate() = default;
    virtual void diskDidMount(const NTDiskDrivePtr &drive) = 0;
    virtual void diskDidUnMount(const QString &mountPath) = 0;
};

// The process-wide source of volume records.
class NTDiskManager final : public QObject {
    Q_OBJECT
public:
    // Created once; when an application object exists it lives on its thread and follows the
    // kernel mount table from then on.
    static NTDiskManager *shared();

    explicit NTDiskManager(DiskSystem system, QObject *parent = nullptr);
    ~NTDiskManager() override;

    // Every listed volume, in mount table order. Safe to call from any thread.
    NTDiskDriveList getAllDiskDrive() const;

    // NO only when the file system at the path says it is mounted read-only.
    static bool checkWrite(const QString &path);

    // Fills bsdName and settles formatDescription for a record whose mountPath and
    // formatDescription are set.
    void setInfoWithIOKit(NTDiskDrive &drive) const;

    // Passes on the mounts and unmounts of external, mountable, local NTFS volumes from now on;
    // those already mounted are not reported again.
    void addLisener();

    DiskMountDelegate *delegate() const { return m_delegate; }
    void setDelegate(DiskMountDelegate *delegate) { m_delegate = delegate; }

    // Starts following the mount table and reports what changed since the manager was created.
    bool startMonitoring();
    // Reports what changed since the table was last read, by mount id: a volume unmounted and
    // mounted again at the same path is two events, not none.
    void mountTableDidChange();
    // For the session of addLisener: reports the matching volumes mounted and gone since it last
    // looked (a volume whose device went away counts as gone).
    void sessionDidChange();

private:
    class DeviceCache;

    NTDiskDrivePtr fillRecord(const MountEntry &entry, DeviceCache &devices) const;
    void applyDeviceFacts(NTDiskDrive &drive, const std::optional<BlockDeviceFacts> &facts) const;
    void diskDidMount(const MountEntry &entry, DeviceCache &devices);
    void diskDidUnMount(const MountEntry &entry);
    void reportChanges(const QHash<int, MountEntry> &before, const QList<MountEntry> &after,
                       DeviceCache &devices);
    QList<MountEntry> sessionMatches(DeviceCache &devices) const;
    MountMonitor *mountMonitor();

    DiskSystem m_system;
    DiskMountDelegate *m_delegate = nullptr;
    QHash<int, MountEntry> m_knownMounts; // taken when created, on whichever thread that is
    QHash<int, MountEntry> m_sessionMounts;
    MountMonitor *m_mountMonitor = nullptr;
    bool m_monitoring = false;
    BlockEventMonitor *m_session = nullptr;
};

// The kernel name of the device holding `path`, or a null string when no block device does.
QString bsdNameForPath(const QString &path, const DiskSystem &system = DiskSystem::local());
