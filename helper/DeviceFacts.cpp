#include "helper/DeviceFacts.h"

#include "helper/MountRecord.h"
#include "helper/RequestValidation.h"
#include "helper/UniqueFd.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <linux/loop.h>
#include <linux/stat.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace helper {

namespace {

QByteArray readSmallFile(const QString &path, qint64 limit = 1 << 20) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.read(limit);
}

QString readTrimmed(const QString &path) {
    return QString::fromUtf8(readSmallFile(path, 4096)).trimmed();
}

} // namespace

bool MountEntry::readOnly() const {
    return options.split(u',').contains(u"ro"_s);
}

QString MountEntry::superOption(const QString &key) const {
    const QString prefix = key + u'=';
    for (const QString &option : superOptions.split(u',')) {
        if (option.startsWith(prefix))
            return option.mid(prefix.size());
    }
    return {};
}

DeviceFacts::DeviceFacts(SystemRoots roots)
    : m_roots(std::move(roots)) {}

QString DeviceFacts::sysBlockPath(const QString &name) const {
    return m_roots.sys + u"/class/block/"_s + name;
}

bool DeviceFacts::isBlockDevice(const QString &name) const {
    if (!isKernelDeviceName(name))
        return false;
    if (!QFileInfo::exists(sysBlockPath(name) + u"/dev"_s))
        return false;
    if (!m_roots.requireBlockNodes)
        return QFileInfo::exists(m_roots.dev + u'/' + name);
    struct stat info {};
    const QByteArray node = QFile::encodeName(m_roots.dev + u'/' + name);
    return ::stat(node.constData(), &info) == 0 && S_ISBLK(info.st_mode);
}

dev_t DeviceFacts::deviceNumber(const QString &name) const {
    if (!isBlockDevice(name))
        return 0;
    const QStringList numbers = readTrimmed(sysBlockPath(name) + u"/dev"_s).split(u':');
    bool majorOk = false, minorOk = false;
    const dev_t number =
        numbers.size() == 2 ? makedev(numbers[0].toUInt(&majorOk), numbers[1].toUInt(&minorOk)) : 0;
    if (!majorOk || !minorOk)
        return 0;
    if (!m_roots.requireBlockNodes)
        return number;
    struct stat info {};
    const QByteArray node = QFile::encodeName(m_roots.dev + u'/' + name);
    return ::stat(node.constData(), &info) == 0 && S_ISBLK(info.st_mode) && info.st_rdev == number
               ? number
               : 0;
}

bool DeviceFacts::isPartition(const QString &name) const {
    return isKernelDeviceName(name) && QFileInfo::exists(sysBlockPath(name) + u"/partition"_s);
}

QString DeviceFacts::parentDisk(const QString &name) const {
    if (!isPartition(name))
        return name;
    const QFileInfo resolved(QFileInfo(sysBlockPath(name)).canonicalFilePath());
    const QString parent = QFileInfo(resolved.path()).fileName();
    return isKernelDeviceName(parent) ? parent : name;
}

bool DeviceFacts::isLoopDevice(const QString &name) {
    return name.startsWith(u"loop"_s) && isKernelDeviceName(name);
}

bool DeviceFacts::isUsb(const QString &disk) const {
    return QFileInfo(sysBlockPath(disk)).canonicalFilePath().contains(u"/usb"_s);
}

bool DeviceFacts::isExternalFor(const QString &disk, uid_t uid) const {
    if (isLoopDevice(disk))
        return uid == 0 || loopFileOwner(disk) == uid;
    if (readTrimmed(sysBlockPath(disk) + u"/removable"_s) == u"1"_s)
        return true;
    const QString path = QFileInfo(sysBlockPath(disk)).canonicalFilePath();
    for (const auto &bus : {u"/usb"_s, u"/firewire"_s, u"/ieee1394"_s, u"/mmc"_s, u"/memstick"_s}) {
        if (path.contains(bus))
            return true;
    }
    return false;
}

std::optional<uid_t> DeviceFacts::loopFileOwner(const QString &disk) const {
    const QByteArray file = readSmallFile(sysBlockPath(disk) + u"/loop/backing_file"_s, 8192);
    const QByteArray node = QFile::encodeName(m_roots.dev + u'/' + disk);
    const UniqueFd fd(::open(node.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    loop_info64 status{};
    if (file.isEmpty() || !fd.valid() || ::ioctl(fd.get(), LOOP_GET_STATUS64, &status) != 0)
        return std::nullopt;
    // The path is only a name: the file may have been deleted or replaced since it was attached.
    struct stat info {};
    if (::stat(file.trimmed().constData(), &info) != 0 || info.st_dev != status.lo_device ||
        info.st_ino != status.lo_inode)
        return std::nullopt;
    return info.st_uid;
}

QString DeviceFacts::unescapeMountField(const QByteArray &field) {
    QByteArray out;
    out.reserve(field.size());
    for (qsizetype i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            const QByteArray digits = field.mid(i + 1, 3);
            bool ok = false;
            const int value = digits.toInt(&ok, 8);
            if (ok && digits.size() == 3 && value < 256) {
                out.append(char(value));
                i += 3;
                continue;
            }
        }
        out.append(field[i]);
    }
    return QString::fromUtf8(out);
}

QList<MountEntry> DeviceFacts::parseMountInfo(const QByteArray &text) {
    QList<MountEntry> entries;
    for (const QByteArray &line : text.split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        const qsizetype separator = fields.indexOf(QByteArray("-"));
        if (separator < 6 || separator + 2 >= fields.size())
            continue;
        MountEntry entry;
        entry.mountId = fields[0].toInt();
        const QList<QByteArray> numbers = fields[2].split(':');
        if (numbers.size() != 2)
            continue;
        entry.major = numbers[0].toInt();
        entry.minor = numbers[1].toInt();
        entry.root = unescapeMountField(fields[3]);
        entry.target = unescapeMountField(fields[4]);
        entry.options = QString::fromUtf8(fields[5]);
        entry.fsType = unescapeMountField(fields[separator + 1]);
        entry.source = unescapeMountField(fields[separator + 2]);
        if (separator + 3 < fields.size())
            entry.superOptions = QString::fromUtf8(fields[separator + 3]);
        entries.append(entry);
    }
    return entries;
}

QString DeviceFacts::deviceFromNumbers(int major, int minor) const {
    if (major <= 0)
        return {};
    const QString link = m_roots.sys + u"/dev/block/%1:%2"_s.arg(major).arg(minor);
    const QString name = QFileInfo(QFileInfo(link).canonicalFilePath()).fileName();
    return isKernelDeviceName(name) ? name : QString();
}

QString DeviceFacts::deviceFromPath(const QString &path) const {
    if (!path.startsWith(u"/dev/"_s))
        return {};
    const QString local = m_roots.dev + path.mid(4);
    const QString resolved = QFileInfo(local).canonicalFilePath();
    const QString name = QFileInfo(resolved.isEmpty() ? local : resolved).fileName();
    return isKernelDeviceName(name) && QFileInfo::exists(sysBlockPath(name)) ? name : QString();
}

QList<MountEntry> DeviceFacts::mounts() const {
    QList<MountEntry> entries =
        parseMountInfo(readSmallFile(m_roots.proc + u"/self/mountinfo"_s, 16 << 20));
    // Never the source text: whoever makes a FUSE mount chooses it.
    for (MountEntry &entry : entries)
        entry.device = deviceFromNumbers(entry.major, entry.minor);
    return entries;
}

QList<MountEntry> DeviceFacts::mountsOfDevice(const QString &name) const {
    QList<MountEntry> found;
    for (const MountEntry &entry : mounts()) {
        if (!name.isEmpty() && entry.device == name)
            found.append(entry);
    }
    return found;
}

QList<MountEntry> DeviceFacts::mountsOfDisk(const QString &disk) const {
    QList<MountEntry> found;
    for (const MountEntry &entry : mounts()) {
        if (!entry.device.isEmpty() && parentDisk(entry.device) == disk)
            found.append(entry);
    }
    return found;
}

bool DeviceFacts::isMountTarget(const QString &path) const {
    for (const MountEntry &entry : mounts()) {
        if (entry.target == path)
            return true;
    }
    return false;
}

std::optional<uid_t> DeviceFacts::mountedRootOwner(const MountEntry &mount) const {
    // statx rather than fstatat: its mount id proves the folder is this mount's root and not
    // something mounted over it or put in its place.
    struct statx info {};
    const QByteArray target = QFile::encodeName(mount.target);
    if (mount.root != u"/"_s ||
        ::statx(AT_FDCWD, target.constData(), AT_NO_AUTOMOUNT | AT_SYMLINK_NOFOLLOW,
                STATX_TYPE | STATX_UID | STATX_MNT_ID, &info) != 0 ||
        !(info.stx_mask & STATX_MNT_ID) || info.stx_mnt_id != quint64(mount.mountId) ||
        !(info.stx_attributes & STATX_ATTR_MOUNT_ROOT) || !S_ISDIR(info.stx_mode))
        return std::nullopt;
    return info.stx_uid;
}

std::optional<uid_t> DeviceFacts::ownerOf(const MountEntry &mount,
                                          const MountRecord &record) const {
    if (const std::optional<uid_t> uid = record.mountedFor(mount))
        return uid;
    bool ok = false;
    const uint uid = mount.superOption(u"uid"_s).toUInt(&ok);
    if (ok)
        return uid_t(uid);
    return mountedRootOwner(mount);
}

QStringList DeviceFacts::holders(const QString &device) const {
    if (!isKernelDeviceName(device))
        return {};
    QStringList names = QDir(sysBlockPath(device) + u"/holders"_s)
                            .entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    names.removeIf([](const QString &name) { return !isKernelDeviceName(name); });
    return names;
}

QStringList DeviceFacts::partitions(const QString &disk) const {
    QStringList names =
        QDir(sysBlockPath(disk)).entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks);
    names.removeIf([&](const QString &name) { return !isPartition(name); });
    return names;
}

QStringList DeviceFacts::diskHolders(const QString &disk) const {
    QStringList names = holders(disk);
    for (const QString &partition : partitions(disk))
        names += holders(partition);
    return names;
}

QSet<QString> DeviceFacts::lowerDisks(const QString &disk, int depth) const {
    QSet<QString> disks{disk};
    if (depth > 8)
        return disks;
    const QDir slaves(sysBlockPath(disk) + u"/slaves"_s);
    for (const QString &slave : slaves.entryList(QDir::AllEntries | QDir::NoDotAndDotDot)) {
        if (isKernelDeviceName(slave))
            disks.unite(lowerDisks(parentDisk(slave), depth + 1));
    }
    return disks;
}

QSet<QString> DeviceFacts::systemDisks() const {
    static const QStringList systemTargets{u"/"_s, u"/usr"_s, u"/boot"_s, u"/boot/efi"_s,
                                           u"/home"_s};
    QSet<QString> devices;
    for (const MountEntry &entry : mounts()) {
        if (!systemTargets.contains(entry.target))
            continue;
        // btrfs shows an anonymous number; only root can mount at these places.
        const QString device = entry.device.isEmpty() ? deviceFromPath(entry.source) : entry.device;
        if (!device.isEmpty())
            devices.insert(device);
    }
    const QList<QByteArray> swaps = readSmallFile(m_roots.proc + u"/swaps"_s).split('\n');
    for (qsizetype i = 1; i < swaps.size(); ++i) {
        const QByteArray line = swaps[i].simplified();
        if (line.isEmpty())
            continue;
        const QString file = unescapeMountField(line.split(' ').first());
        QString device = deviceFromPath(file);
        if (device.isEmpty()) {
            // A swap file: the disk to protect is the one its file system lives on.
            struct stat info {};
            if (::stat(QFile::encodeName(file).constData(), &info) == 0)
                device = deviceFromNumbers(int(major(info.st_dev)), int(minor(info.st_dev)));
        }
        if (!device.isEmpty())
            devices.insert(device);
    }
    QSet<QString> disks;
    for (const QString &device : std::as_const(devices))
        disks.unite(lowerDisks(parentDisk(device)));
    return disks;
}

bool DeviceFacts::isSystemDisk(const QString &disk) const {
    const QSet<QString> below = lowerDisks(disk);
    // swapon leaves the mount table alone, so the swap list is compared on each call.
    const QByteArray swaps = readSmallFile(m_roots.proc + u"/swaps"_s);
    const std::lock_guard lock(m_systemMutex);
    if (!m_systemDisks || swaps != m_swapsSeen) {
        m_systemDisks = systemDisks();
        m_swapsSeen = swaps;
    }
    return below.intersects(*m_systemDisks);
}

void DeviceFacts::mountTableChanged() const {
    const std::lock_guard lock(m_systemMutex);
    m_systemDisks.reset();
}

bool DeviceFacts::fuseUsable() const {
    const QByteArray path = QFile::encodeName(m_roots.dev + u"/fuse"_s);
    return UniqueFd(::open(path.constData(), O_RDWR | O_CLOEXEC)).valid();
}

bool DeviceFacts::requestRemoval(const QString &disk, QString *why) const {
    if (!isKernelDeviceName(disk) || isPartition(disk)) {
        *why = u"%1 is not a whole disk"_s.arg(disk);
        return false;
    }
    QFile file(m_roots.sys + u"/block/"_s + disk + u"/device/delete"_s);
    if (!file.exists()) {
        *why = u"this device cannot be powered off"_s;
        return false;
    }
    if (!file.open(QIODevice::WriteOnly) || file.write("1\n") != 2) {
        *why = u"the kernel refused to power off %1: %2"_s.arg(disk, file.errorString());
        return false;
    }
    return true;
}

} // namespace helper
