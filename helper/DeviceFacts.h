#pragma once

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <sys/types.h>

#include <mutex>
#include <optional>

namespace helper {

class MountRecord;

// One line of the kernel's mountinfo table.
struct MountEntry {
    int mountId = 0;
    QString target;
    QString root;
    QString fsType;
    QString source;
    QString options;      // per-mount options (ro/rw, nosuid, ...)
    QString superOptions; // file-system options (user_id=, group_id= for FUSE)
    int major = 0;
    int minor = 0;
    // Kernel name of the block device whose number the mount carries, "" when it has none (FUSE
    // mounts of ordinary users have anonymous numbers).
    QString device;

    bool readOnly() const;
    // Value of `key=value` in the super options, "" when absent.
    QString superOption(const QString &key) const;
};

// Where the kernel's views live; tests point these at fixture trees.
struct SystemRoots {
    QString sys = QStringLiteral("/sys");
    QString proc = QStringLiteral("/proc");
    QString dev = QStringLiteral("/dev");
    bool requireBlockNodes = true; // a fixture's /dev holds plain files
};

// What the helper knows about block devices, read afresh from sysfs and procfs on every call so a
// decision is never made on a stale view; only the system-disk view is kept, until the mount table
// or the swap list changes.
class DeviceFacts {
public:
    explicit DeviceFacts(SystemRoots roots = {});

    // A syntactically valid kernel name that sysfs lists as a block device with a device node.
    bool isBlockDevice(const QString &name) const;
    bool isPartition(const QString &name) const;
    // The number sysfs gives the device, only while its /dev node is that block device; 0 when
    // not.
    dev_t deviceNumber(const QString &name) const;
    // The whole disk a partition belongs to; the name itself for a whole disk.
    QString parentDisk(const QString &name) const;
    // Removable media or a USB/FireWire/MMC/memstick bus; a loop device only for root and for
    // the owner of the file it is attached to.
    bool isExternalFor(const QString &disk, uid_t uid) const;
    static bool isLoopDevice(const QString &name);
    bool isUsb(const QString &disk) const;

    // Every disk that holds /, /usr, /boot, /home or active swap, through device-mapper and RAID
    // layers down to the physical disks.
    QSet<QString> systemDisks() const;
    // True when `disk`, or anything it is built on, is one of systemDisks(), as they were when
    // last looked at; safe to call from any thread.
    bool isSystemDisk(const QString &disk) const;
    // Makes isSystemDisk() look again; safe to call from any thread.
    void mountTableChanged() const;

    // Kernel names of the devices built on `device` (device-mapper, LVM, md).
    QStringList holders(const QString &device) const;
    // Holders of the disk and of all its partitions.
    QStringList diskHolders(const QString &disk) const;

    QList<MountEntry> mounts() const;
    QList<MountEntry> mountsOfDevice(const QString &name) const;
    // Mounts of the disk itself and of all its partitions.
    QList<MountEntry> mountsOfDisk(const QString &disk) const;
    bool isMountTarget(const QString &path) const;
    // Whom the volume belongs to: the helper's record, else the mount's uid= option, else the
    // owner of the mounted root folder (ntfs-3g shows its uid= there). nullopt when unknown.
    std::optional<uid_t> ownerOf(const MountEntry &mount, const MountRecord &record) const;

    // /dev/fuse can be opened for reading and writing.
    bool fuseUsable() const;
    // Asks the kernel to drop the device (SCSI delete), which powers off most USB drives.
    bool requestRemoval(const QString &disk, QString *why) const;

    static QList<MountEntry> parseMountInfo(const QByteArray &text);
    static QString unescapeMountField(const QByteArray &field);

private:
    QString deviceFromNumbers(int major, int minor) const;
    QString deviceFromPath(const QString &path) const;
    QString sysBlockPath(const QString &name) const;
    // The disk and every disk below it through the "slaves" links.
    QSet<QString> lowerDisks(const QString &disk, int depth = 0) const;
    QStringList partitions(const QString &disk) const;
    // The owner of the file a loop device reads, only while that file is still the one attached.
    std::optional<uid_t> loopFileOwner(const QString &disk) const;
    // The owner of the mount's root folder, only when that folder is the mount's own root.
    std::optional<uid_t> mountedRootOwner(const MountEntry &mount) const;

    SystemRoots m_roots;
    mutable std::mutex m_systemMutex;
    mutable std::optional<QSet<QString>> m_systemDisks;
    mutable QByteArray m_swapsSeen;
};

} // namespace helper
