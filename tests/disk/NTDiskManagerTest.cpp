#include "disk/NTDiskManager.h"

#include "disk/LibmountMountTable.h"
#include "disk/SysfsBlockDevices.h"
#include "tests/support/QtPrinters.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// A desktop's mount table, its file systems as their superblocks name them (probes counted) and
// the sizes of its volumes, read-only where mounted so.
struct FakeSystem final : MountTable, FsProbe, VolumeSpaceReader {
    QList<MountEntry> read() const override { return entries; }
    FsIdentity probe(const QString &devicePath) const override {
        ++probes[devicePath];
        return identities.value(devicePath);
    }
    std::optional<VolumeSpace> read(const QString &mountPath) const override {
        for (const MountEntry &entry : entries)
            if (entry.target == mountPath && !unreadable.contains(mountPath))
                return VolumeSpace{1000 * 4096, 250 * 4096, entry.options.startsWith("ro"_L1)};
        return std::nullopt;
    }
    QList<MountEntry> entries =
        LibmountMountTable(QStringLiteral(VANTRELO_TEST_DATA "/mountinfo-desktop.txt")).read();
    QHash<QString, FsIdentity> identities{{u"/dev/nvme0n1p1"_s, {u"vfat"_s, {}, u"EFI"_s}},
                                          {u"/dev/sdb1"_s, {u"ntfs"_s, {}, u"My Passport"_s}},
                                          {u"/dev/sdb2"_s, {u"ext4"_s, u"uuid"_s, u"Backup"_s}},
                                          {u"/dev/sde1"_s, {u"ntfs"_s, {}, u"Données"_s}}};
    QSet<QString> unreadable;
    mutable QHash<QString, int> probes;
};

// A desktop: NVMe system disk, USB disk, card reader, SATA disk with a read-only medium, MMC card
// and two loop images, in a sysfs tree of its own.
class DiskListing : public ::testing::Test, public DiskMountDelegate {
protected:
    void diskDidMount(const NTDiskDrivePtr &drive) override {
        events << u"mount "_s + drive->bsdName() + u' ' + drive->mountPath();
    }
    void diskDidUnMount(const QString &mountPath) override { events << u"unmount "_s + mountPath; }
    DiskListing() {
        manager.setDelegate(this);
        QDir(sysfs.path()).mkpath(u"class/block"_s);
        for (const QString &device :
             {u"pci0/nvme0/nvme0n1/nvme0n1p1"_s, u"pci0/nvme0/nvme0n1/nvme0n1p2"_s,
              u"pci0/usb2/2-1/block/sdb/sdb1"_s, u"pci0/usb2/2-1/block/sdb/sdb2"_s,
              u"pci0/ata2/block/sdc/sdc1"_s, u"pci0/ata3/block/sde/sde1"_s,
              u"platform/mmc0/block/mmcblk0/mmcblk0p1"_s, u"virtual/loop0"_s, u"virtual/loop1"_s}) {
            const QString dir = sysfs.filePath(u"devices/"_s + device);
            QDir().mkpath(dir);
            write(dir + u"/partition"_s, "1");
            write(dir + u"/ro"_s, device.endsWith("sde1"_L1) ? "1" : "0");
            QFile::link(dir, sysfs.filePath(u"class/block/"_s + device.section(u'/', -1)));
        }
        write(sysfs.filePath(u"devices/pci0/ata2/block/sdc/removable"_s), "1"); // a card reader
    }
    static void write(const QString &path, const QByteArray &bytes) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    }

    QTemporaryDir sysfs;
    std::shared_ptr<FakeSystem> fake = std::make_shared<FakeSystem>();
    DiskSystem system{fake, std::make_shared<SysfsBlockDevices>(sysfs.path(), fake), fake,
                      [] { return u"testhost"_s; }};
    NTDiskManager manager{system};
    QStringList events;
};

} // namespace

// Left out: proc and tmpfs (no device), the /snap image, the bound sub-folder, the
// /System/Volumes path and the disk that vanished from sysfs. ntfs-3g mounts show as fuseblk; the
// card reader's volume has no label; an internal volume is writable when its medium is.
TEST_F(DiskListing, ListsBlockBackedVolumesInTableOrderWithTheirFacts) {
    QStringList listed; // device | path | name | format | internal, ejectable, group, writable
    for (const NTDiskDrivePtr &d : manager.getAllDiskDrive())
        listed << u"%1 | %2 | %3 | %4 | %5%6%7%8"_s
                      .arg(d->bsdName(), d->mountPath(), d->name(), d->formatDescription())
                      .arg(int(d->isInternal()))
                      .arg(int(d->isEjectable()))
                      .arg(d->groupType())
                      .arg(int(d->isWritable()));
    EXPECT_EQ(listed,
              (QStringList{u"nvme0n1p2 | / | testhost | ext4 | 1001"_s,
                           u"nvme0n1p1 | /boot/efi | EFI | FAT32 | 1001"_s,
                           u"sdb1 | /media/anna/My Passport | My Passport | Windows NTFS | 0110"_s,
                           u"sdb2 | /media/anna/Backup | Backup | ext4 | 0110"_s,
                           u"loop1 | /mnt/image | image | SquashFS | 0110"_s,
                           u"sdc1 | /media/anna/Line\nBreak | Line\nBreak | Windows NTFS | 0111"_s,
                           u"nvme0n1p2 | /mnt/readonly-root | readonly-root | ext4 | 1001"_s,
                           u"sde1 | /media/anna/Données | Données | Windows NTFS | 1000"_s}));
    // Mounts of one device read its facts once per listing.
    EXPECT_EQ(fake->probes.value(u"/dev/nvme0n1p2"_s), 1);
}

TEST_F(DiskListing, UnreadableValuesCountAsZeroAndNo) {
    fake->unreadable.insert(u"/media/anna/Backup"_s);
    fake->identities.remove(u"/dev/sdb2"_s);
    const NTDiskDrivePtr drive = manager.getAllDiskDrive().value(3);
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->totalSize(), 0);
    EXPECT_EQ(drive->freeSize(), 0);
    EXPECT_EQ(drive->name(), u"Backup"_s);
    EXPECT_TRUE(drive->uuid().isEmpty());
    // A read-only flag that cannot be read does not make a volume read-only.
    EXPECT_TRUE(drive->isWritable());
    EXPECT_TRUE(NTDiskManager::checkWrite(u"/nonexistent/path"_s));
}

TEST_F(DiskListing, FindsTheDeviceOfAPathAndSettlesTheNtfsName) {
    NTDiskDrive passport;
    passport.setMountPath(u"/media/anna/My Passport"_s);
    passport.setFormatDescription(u"FUSE"_s);
    manager.setInfoWithIOKit(passport);
    EXPECT_EQ(passport.bsdName(), u"sdb1"_s);
    EXPECT_EQ(passport.formatDescription(), u"Windows NTFS"_s);
    EXPECT_EQ(bsdNameForPath(u"/media/anna/My Passport/photos/a.jpg"_s, system), u"sdb1"_s);
    EXPECT_EQ(bsdNameForPath(u"/media/anna/My PassportX"_s, system), u"nvme0n1p2"_s);
    EXPECT_TRUE(bsdNameForPath(u"/proc/self"_s, system).isNull());
}

TEST_F(DiskListing, MountEventsFollowTheTableByMountId) {
    // Mounted after the manager was made but before it watched: still reported.
    fake->entries << MountEntry{70, 21, 0, u"/dev/sdb2"_s, u"/media/late"_s, u"ext4"_s, u"/"_s, {}};
    manager.startMonitoring();
    EXPECT_EQ(std::exchange(events, {}), QStringList{u"mount sdb2 /media/late"_s});
    // Unmounted and mounted again between two reads, the kernel reusing the freed id or not.
    for (const int id : {30, 50}) {
        MountEntry &passport = fake->entries[4];
        passport.id = id;
        passport.options = u"rw,user_id=%1"_s.arg(id);
        manager.mountTableDidChange();
        EXPECT_EQ(std::exchange(events, {}),
                  (QStringList{u"unmount /media/anna/My Passport"_s,
                               u"mount sdb1 /media/anna/My Passport"_s}));
    }
    // Every unmount is passed on; mounts only of listed volumes, never of unknown devices.
    fake->entries.removeIf([](const MountEntry &e) { return e.target == "/run"_L1; });
    fake->entries << MountEntry{60, 21, 0, u"tmpfs"_s, u"/tmp/ram"_s, u"tmpfs"_s, u"/"_s, {}}
                  << MountEntry{61, 21, 0, u"/dev/sdz9"_s, u"/media/x"_s, u"ext4"_s, u"/"_s, {}};
    manager.mountTableDidChange();
    EXPECT_EQ(events, QStringList{u"unmount /run"_s});
}

// Only external NTFS volumes, once when they mount and once when they or their device go away.
TEST_F(DiskListing, SessionPassesOnOnlyExternalNtfsVolumesAsTheyMount) {
    manager.addLisener();
    EXPECT_EQ(events, QStringList{}); // those already mounted are not reported
    fake->entries.removeIf([](const MountEntry &e) { return e.id == 36; }); // the card reader's
    fake->entries << MountEntry{60,           21,     0, u"/dev/sdb1"_s, u"/media/again"_s,
                                u"fuseblk"_s, u"/"_s, {}}
                  << MountEntry{61, 21, 0, u"/dev/sdb2"_s, u"/media/ext4"_s, u"ext4"_s, u"/"_s, {}}
                  << MountEntry{62,           21,     0, u"/dev/sde1"_s, u"/media/internal"_s,
                                u"fuseblk"_s, u"/"_s, {}};
    for (int round = 0; round < 2; ++round)
        manager.sessionDidChange();
    EXPECT_EQ(std::exchange(events, {}),
              (QStringList{u"unmount /media/anna/Line\nBreak"_s, u"mount sdb1 /media/again"_s}));
    QFile::remove(sysfs.filePath(u"class/block/sdb1"_s)); // unplugged while mounted
    manager.sessionDidChange();
    EXPECT_EQ(events,
              (QStringList{u"unmount /media/again"_s, u"unmount /media/anna/My Passport"_s}));
}

TEST_F(DiskListing, LogLinesShowValuesAsTheyAre) {
    fake->identities[u"/dev/sdb1"_s].label = u"50%1off %2"_s;
    static QStringList log;
    const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &context, const QString &message) {
            if (QLatin1StringView(context.category) == "vantrelo.disk"_L1)
                log << message;
        });
    manager.getAllDiskDrive();
    qInstallMessageHandler(previous);
    EXPECT_TRUE(log.contains(u"bsdName:sdb1 name:50%1off %2 mountPath:/media/anna/My Passport "
                             "format:Windows NTFS iswritable:0"_s))
        << log.join(u'\n').toStdString();
}
