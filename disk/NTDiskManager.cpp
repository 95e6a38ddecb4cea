#include "disk/NTDiskManager.h"

#include "disk/BlockEventMonitor.h"
#include "disk/DiskLogging.h"
#include "disk/MountMonitor.h"
#include "disk/VolumeFormat.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QThread>

using namespace Qt::StringLiterals;

namespace {

// Mounts a person does not think of as volumes: sub-folders bound elsewhere, and the images that
// packaged software mounts.
bool isHiddenMount(const MountEntry &entry) {
    if (!entry.root.isEmpty() && entry.root != "/"_L1)
        return true;
    return entry.fsType == "squashfs"_L1 && entry.target.startsWith("/snap/"_L1);
}

QString volumeName(const QString &label, const QString &mountPath,
                   const std::function<QString()> &hostName) {
    if (!label.isEmpty())
        return label;
    if (mountPath == "/"_L1)
        return hostName ? hostName() : QString();
    return QFileInfo(mountPath).fileName();
}

const MountEntry *topMountAt(const QList<MountEntry> &entries, const QString &target) {
    // Later lines are mounted over earlier ones at the same place.
    for (auto it = entries.crbegin(); it != entries.crend(); ++it)
        if (it->target == target)
            return &*it;
    return nullptr;
}

// The kernel gives a freed mount id to the next mount at once, so an unmount followed by a mount
// at the same place can keep the id; what was mounted, and how, tells them apart.
bool isSameMount(const MountEntry &a, const MountEntry &b) {
    return a.id == b.id && a.devno == b.devno && a.source == b.source && a.target == b.target &&
           a.fsType == b.fsType && a.root == b.root && a.options == b.options;
}

QHash<int, MountEntry> byId(const QList<MountEntry> &entries) {
    QHash<int, MountEntry> mounts;
    for (const MountEntry &entry : entries)
        mounts.insert(entry.id, entry);
    return mounts;
}

bool isInsideMount(const QString &path, const QString &target) {
    if (target == "/"_L1)
        return path.startsWith(u'/');
    return path == target || path.startsWith(target + u'/');
}

} // namespace

// One enumeration reads each device once, however many mounts share it.
class NTDiskManager::DeviceCache {
public:
    explicit DeviceCache(const BlockDevices &devices)
        : m_devices(devices) {}

    const std::optional<BlockDeviceFacts> &lookup(const MountEntry &entry) {
        // Bind mounts share the device number; sources tell apart mounts that have none.
        return entry.devno != 0 ? cached(m_byDevno, entry.devno, entry)
                                : cached(m_bySource, entry.source, entry);
    }

private:
    const BlockDevices &m_devices;
    QHash<quint64, std::optional<BlockDeviceFacts>> m_byDevno;
    QHash<QString, std::optional<BlockDeviceFacts>> m_bySource;

    template <typename Key>
    const std::optional<BlockDeviceFacts> &
    cached(QHash<Key, std::optional<BlockDeviceFacts>> &cache, const Key &key,
           const MountEntry &entry) {
        auto it = cache.find(key);
        if (it == cache.end())
            it = cache.insert(key, m_devices.deviceForMount(entry));
        return *it;
    }
};

NTDiskManager *NTDiskManager::shared() {
    static NTDiskManager *const instance = [] {
        auto *manager = new NTDiskManager(DiskSystem::local());
        if (QCoreApplication *app = QCoreApplication::instance()) {
            manager->moveToThread(app->thread());
            QMetaObject::invokeMethod(manager, &NTDiskManager::startMonitoring);
        }
        return manager;
    }();
    return instance;
}

NTDiskManager::NTDiskManager(DiskSystem system, QObject *parent)
    : QObject(parent)
    , m_system(std::move(system))
    , m_knownMounts(byId(m_system.mountTable->read())) {}

NTDiskManager::~NTDiskManager() = default;

NTDiskDriveList NTDiskManager::getAllDiskDrive() const {
    NTDiskDriveList drives;
    DeviceCache devices(*m_system.blockDevices);
    for (const MountEntry &entry : m_system.mountTable->read()) {
        NTDiskDrivePtr drive = fillRecord(entry, devices);
        if (!drive)
            continue;
        // One pass: a second arg() would substitute inside the values ("50%1off").
        qCInfo(lcDisk).noquote() << u"bsdName:%1 name:%2 mountPath:%3 format:%4 iswritable:%5"_s
                                        .arg(drive->bsdName(), drive->name(), drive->mountPath(),
                                             drive->formatDescription(),
                                             QString::number(int(drive->isWritable())));
        drives.append(std::move(drive));
    }
    return drives;
}

NTDiskDrivePtr NTDiskManager::fillRecord(const MountEntry &entry, DeviceCache &devices) const {
    if (isHiddenMount(entry))
        return nullptr;
    const std::optional<BlockDeviceFacts> &facts = devices.lookup(entry);
    auto drive = std::make_shared<NTDiskDrive>();
    drive->setMountPath(entry.target);
    // FUSE mounts name only the transport; the device's own superblock names the file system.
    const bool fuse = entry.fsType.startsWith("fuse"_L1);
    drive->setFormatDescription(readableFormatName(
        fuse && facts && !facts->fsType.isEmpty() ? facts->fsType : entry.fsType));
    applyDeviceFacts(*drive, facts);
    if (drive->mountPath().contains("/System/Volumes"_L1) || drive->bsdName().isEmpty())
        return nullptr;

    drive->setName(volumeName(facts->label, entry.target, m_system.hostName));
    drive->setUuid(facts->uuid);
    drive->setIcon(facts->external ? u"drive-removable-media"_s : u"drive-harddisk"_s);
    const std::optional<VolumeSpace> space = m_system.volumeSpace->read(entry.target);
    if (space) {
        drive->setTotalSize(space->totalBytes);
        drive->setFreeSize(space->availableBytes);
    }
    drive->setIsEjectable(facts->external);
    drive->setIsEncrypted(facts->encrypted);
    drive->setIsInternal(!facts->external);
    // An internal disk counts as writable when its medium is, even if mounted read-only; an
    // external volume only when it is mounted read/write.
    drive->setIsWritable(drive->isInternal() ? facts->mediaWritable : !(space && space->readOnly));
    drive->setGroupType(drive->isInternal() ? 0 : 1);
    return drive;
}

void NTDiskManager::applyDeviceFacts(NTDiskDrive &drive,
                                     const std::optional<BlockDeviceFacts> &facts) const {
    if (mentionsNtfs(drive.formatDescription()))
        drive.setFormatDescription(windowsNtfsDescription());
    if (!facts)
        return;
    drive.setBsdName(facts->kernelName);
    if (mentionsNtfs(facts->fsType))
        drive.setFormatDescription(windowsNtfsDescription());
}

void NTDiskManager::setInfoWithIOKit(NTDiskDrive &drive) const {
    const QList<MountEntry> entries = m_system.mountTable->read();
    const MountEntry *entry = topMountAt(entries, drive.mountPath());
    applyDeviceFacts(drive, entry ? m_system.blockDevices->deviceForMount(*entry) : std::nullopt);
}

bool NTDiskManager::checkWrite(const QString &path) {
    const std::optional<VolumeSpace> space = StatvfsSpaceReader().read(path);
    return !(space && space->readOnly);
}

MountMonitor *NTDiskManager::mountMonitor() {
    if (!m_mountMonitor)
        m_mountMonitor = new MountMonitor(this);
    return m_mountMonitor;
}

bool NTDiskManager::startMonitoring() {
    if (m_monitoring)
        return true;
    connect(mountMonitor(), &MountMonitor::changed, this, &NTDiskManager::mountTableDidChange);
    m_monitoring = mountMonitor()->start();
    // What changed before the kernel was listening would otherwise wait for the next change.
    if (m_monitoring)
        mountTableDidChange();
    return m_monitoring;
}

void NTDiskManager::mountTableDidChange() {
    const QList<MountEntry> entries = m_system.mountTable->read();
    const QHash<int, MountEntry> before = std::exchange(m_knownMounts, byId(entries));
    DeviceCache devices(*m_system.blockDevices);
    reportChanges(before, entries, devices);
}

void NTDiskManager::reportChanges(const QHash<int, MountEntry> &before,
                                  const QList<MountEntry> &after, DeviceCache &devices) {
    const QHash<int, MountEntry> current = byId(after);
    QList<MountEntry> gone;
    for (const MountEntry &entry : before)
        if (const auto it = current.constFind(entry.id);
            it == current.constEnd() || !isSameMount(*it, entry))
            gone.append(entry);
    // Children before parents, as the kernel unmounts them.
    std::sort(gone.begin(), gone.end(),
              [](const MountEntry &a, const MountEntry &b) { return a.id > b.id; });
    for (const MountEntry &entry : gone)
        diskDidUnMount(entry);
    for (const MountEntry &entry : after)
        if (const auto it = before.constFind(entry.id);
            it == before.constEnd() || !isSameMount(*it, entry))
            diskDidMount(entry, devices);
}

void NTDiskManager::diskDidMount(const MountEntry &entry, DeviceCache &devices) {
    const NTDiskDrivePtr drive = fillRecord(entry, devices);
    if (drive && m_delegate)
        m_delegate->diskDidMount(drive);
}

void NTDiskManager::diskDidUnMount(const MountEntry &entry) {
    if (m_delegate)
        m_delegate->diskDidUnMount(entry.target);
}

void NTDiskManager::addLisener() {
    if (m_session)
        return;
    DeviceCache devices(*m_system.blockDevices);
    m_sessionMounts = byId(sessionMatches(devices));
    m_session = new BlockEventMonitor(this);
    connect(m_session, &BlockEventMonitor::deviceEvent, this, &NTDiskManager::sessionDidChange);
    // A mount raises no block event; the mount table tells when a matching volume mounts.
    connect(mountMonitor(), &MountMonitor::changed, this, &NTDiskManager::sessionDidChange);
    m_session->start();
    mountMonitor()->start();
    sessionDidChange();
}

QList<MountEntry> NTDiskManager::sessionMatches(DeviceCache &devices) const {
    QList<MountEntry> matches;
    for (const MountEntry &entry : m_system.mountTable->read()) {
        const std::optional<BlockDeviceFacts> &facts = devices.lookup(entry);
        if (!isHiddenMount(entry) && facts && facts->external &&
            (mentionsNtfs(facts->fsType) || mentionsNtfs(entry.fsType)))
            matches.append(entry);
    }
    return matches;
}

void NTDiskManager::sessionDidChange() {
    DeviceCache devices(*m_system.blockDevices);
    const QList<MountEntry> matches = sessionMatches(devices);
    const QHash<int, MountEntry> before = std::exchange(m_sessionMounts, byId(matches));
    reportChanges(before, matches, devices);
}

QString bsdNameForPath(const QString &path, const DiskSystem &system) {
    const QFileInfo info(path);
    const QString canonical = info.exists() ? info.canonicalFilePath() : QDir::cleanPath(path);
    const QList<MountEntry> entries = system.mountTable->read();
    const MountEntry *best = nullptr;
    for (const MountEntry &entry : entries)
        if (isInsideMount(canonical, entry.target) &&
            (!best || entry.target.size() >= best->target.size()))
            best = &entry;
    if (!best)
        return {};
    const auto facts = system.blockDevices->deviceForMount(*best);
    return facts ? facts->kernelName : QString();
}
