#pragma once

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <sys/types.h>

namespace helper {

// One line of the kernel's mountinfo table.
struct MountEntry {
    QString target;
    QString root;
    QString fsType;
    QString source;
    QString options;      // per-mount options (ro/rw, nosuid, ...)
    QString superOptions; // file-system options (user_id=, group_id= for FUSE)
    int major = 0;
    int minor = 0;
    QString device; // kernel block device name, "" when the mount has none
    // Owner of the mount's root folder, which ntfs-3g reports as its uid=/gid= options; -1 until
    // DeviceFacts::fillOwner looked.
    qint64 ownerUid = -1;
    qint64 ownerGid = -1;

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
// decision is never made on a stale view.
class DeviceFacts {
public:
    explicit DeviceFacts(SystemRoots roots = {});

    // A syntactically valid kernel name that sysfs lists as a block device with a device node.
    bool isBlockDevice(const QString &name) const;
    bool isPartition(const QString &name) const;
    // The whole disk a partition belongs to; the name itself for a whole disk.
    QString parentDisk(const QString &name) const;
    // Removable media, a USB/FireWire/MMC bus, or a loop device.
    bool isExternal(const QString &disk) const;
    static bool isLoopDevice(const QString &name);
    bool isUsb(const QString &disk) const;

    // Every disk that holds /, /usr, /boot, /home or active swap, through device-mapper and RAID
    // layers down to the physical disks.
    QSet<QString> systemDisks() const;
    // True when `disk`, or anything it is built on, is one of systemDisks().
    bool isSystemDisk(const QString &disk) const;

    QList<MountEntry> mounts() const;
    QList<MountEntry> mountsOfDevice(const QString &name) const;
    // Mounts of the disk itself and of all its partitions.
    QList<MountEntry> mountsOfDisk(const QString &disk) const;
    bool isMountTarget(const QString &path) const;
    // Looks up who owns the mounted root folder (FUSE shows the mounting uid, not uid=).
    void fillOwner(MountEntry *mount) const;

    // /dev/fuse can be opened for reading and writing.
    bool fuseUsable() const;
    // Asks the kernel to drop the device (SCSI delete), which powers off most USB drives.
    bool requestRemoval(const QString &disk, QString *why) const;
    // The display and session variables of a running process, only when it belongs to `uid`.
    QStringList sessionEnvironment(pid_t pid, uid_t uid) const;

    static QList<MountEntry> parseMountInfo(const QByteArray &text);
    static QString unescapeMountField(const QByteArray &field);

private:
    QString deviceOfMount(const MountEntry &entry) const;
    QString deviceFromNumbers(int major, int minor) const;
    QString deviceFromPath(const QString &path) const;
    QString sysBlockPath(const QString &name) const;
    // The disk and every disk below it through the "slaves" links.
    QSet<QString> lowerDisks(const QString &disk, int depth = 0) const;

    SystemRoots m_roots;
};

} // namespace helper
