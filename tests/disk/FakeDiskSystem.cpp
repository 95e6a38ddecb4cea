#include "tests/disk/FakeDiskSystem.h"

#include "disk/LibmountMountTable.h"
#include "disk/SysfsBlockDevices.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

FakeSysfs::FakeSysfs() {
    QDir(root()).mkpath(u"class/block"_s);
    QDir(root()).mkpath(u"dev/block"_s);
    const QString nvme = u"pci0000:00/0000:00:01.0/nvme/nvme0/nvme0n1"_s;
    addDevice(nvme, u"254:0"_s, 0, 0, false);
    addDevice(nvme + u"/nvme0n1p1"_s, u"259:1"_s, 0, 0, true);
    addDevice(nvme + u"/nvme0n1p2"_s, u"254:2"_s, 0, 0, true);
    const QString usb =
        u"pci0000:00/0000:00:14.0/usb2/2-1/2-1:1.0/host6/target6:0:0/6:0:0:0/block/sdb"_s;
    addDevice(usb, u"8:16"_s, 0, 0, false);
    addDevice(usb + u"/sdb1"_s, u"8:17"_s, 0, 0, true);
    addDevice(usb + u"/sdb2"_s, u"8:18"_s, 0, 0, true);
    const QString reader = u"pci0000:00/0000:00:17.0/ata2/host1/target1:0:0/1:0:0:0/block/sdc"_s;
    addDevice(reader, u"8:32"_s, 0, 1, false);
    addDevice(reader + u"/sdc1"_s, u"8:33"_s, 0, 0, true);
    const QString sata = u"pci0000:00/0000:00:17.0/ata3/host2/target2:0:0/2:0:0:0/block/sde"_s;
    addDevice(sata, u"8:64"_s, 0, 0, false);
    addDevice(sata + u"/sde1"_s, u"8:65"_s, 0, 0, true);
    const QString card = u"platform/mmc_host/mmc0/mmc0:0001/block/mmcblk0"_s;
    addDevice(card, u"179:0"_s, 0, 0, false);
    addDevice(card + u"/mmcblk0p1"_s, u"179:1"_s, 0, 0, true);
    addDevice(u"virtual/block/loop0"_s, u"7:0"_s, 1, 0, false);
    addDevice(u"virtual/block/loop1"_s, u"7:1"_s, 1, 0, false);
}

void FakeSysfs::addDevice(const QString &devicePath, const QString &devno, int ro, int removable,
                          bool partition) {
    const QString dir = root() + u"/devices/"_s + devicePath;
    QDir().mkpath(dir);
    writeFile(dir + u"/ro"_s, QByteArray::number(ro) + '\n');
    writeFile(dir + u"/removable"_s, QByteArray::number(removable) + '\n');
    writeFile(dir + u"/dev"_s, devno.toUtf8() + '\n');
    if (partition)
        writeFile(dir + u"/partition"_s, "1\n");
    const QString name = QFileInfo(devicePath).fileName();
    QFile::link(dir, root() + u"/class/block/"_s + name);
    QFile::link(dir, root() + u"/dev/block/"_s + devno);
}

void FakeSysfs::writeFile(const QString &path, const QByteArray &content) {
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(content);
}

FsIdentity FakeFsProbe::probe(const QString &devicePath) const {
    ++m_calls[devicePath];
    return m_identities.value(devicePath);
}

std::optional<VolumeSpace> FakeSpaceReader::read(const QString &mountPath) const {
    if (unreadable.contains(mountPath))
        return std::nullopt;
    return VolumeSpace{1000 * 4096, 250 * 4096, readOnly.contains(mountPath)};
}

QList<MountEntry> desktopMountTable() {
    return LibmountMountTable(QStringLiteral(VANTRELO_TEST_DATA "/mountinfo-desktop.txt")).read();
}

FakeDiskSystem::FakeDiskSystem()
    : table(std::make_shared<SwappableMountTable>(desktopMountTable()))
    , devices(std::make_shared<SysfsBlockDevices>(sysfs.root(), probe)) {
    probe->set(u"/dev/nvme0n1p2"_s, {u"ext4"_s, u"root-uuid"_s, {}});
    probe->set(u"/dev/nvme0n1p1"_s, {u"vfat"_s, u"ABCD-1234"_s, u"EFI"_s});
    probe->set(u"/dev/sdb1"_s, {u"ntfs"_s, u"718139DB3E99AAEA"_s, u"My Passport"_s});
    probe->set(u"/dev/sdb2"_s, {u"ext4"_s, u"backup-uuid"_s, u"Backup"_s});
    probe->set(u"/dev/sdc1"_s, {u"ntfs"_s, u"card-uuid"_s, {}});
    probe->set(u"/dev/sde1"_s, {u"ext4"_s, u"data-uuid"_s, u"Données"_s});
    probe->set(u"/dev/loop1"_s, {u"squashfs"_s, {}, {}});
    for (const auto &path : {u"/media/anna/My Passport"_s, u"/media/anna/Backup"_s, u"/mnt/image"_s,
                             u"/mnt/readonly-root"_s})
        space->readOnly.insert(path);
}

DiskSystem FakeDiskSystem::system() const {
    return {table, devices, space, [] { return u"testhost"_s; }};
}
