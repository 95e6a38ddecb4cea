#include "disk/NTDiskManager.h"

#include "tests/disk/DriveLookup.h"
#include "tests/disk/FakeDiskSystem.h"
#include "tests/support/QtPrinters.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using ::testing::ElementsAre;
using ::testing::Pair;

namespace {

std::vector<std::pair<std::string, std::string>> devicesAndPaths(const NTDiskDriveList &drives) {
    std::vector<std::pair<std::string, std::string>> result;
    for (const auto &drive : drives)
        result.emplace_back(drive->bsdName().toStdString(), drive->mountPath().toStdString());
    return result;
}

class RecordingDelegate final : public DiskMountDelegate {
public:
    void diskDidMount(const NTDiskDrivePtr &drive) override {
        events.push_back("mount " + drive->bsdName().toStdString() + " " +
                         drive->mountPath().toStdString());
    }
    void diskDidUnMount(const QString &mountPath) override {
        events.push_back("unmount " + mountPath.toStdString());
    }
    std::vector<std::string> events;
};

MountEntry entryAt(const QList<MountEntry> &entries, const QString &target) {
    for (const auto &entry : entries)
        if (entry.target == target)
            return entry;
    return {};
}

} // namespace

class DiskListing : public ::testing::Test {
protected:
    FakeDiskSystem fake;
    NTDiskManager manager{fake.system()};
};

TEST_F(DiskListing, ListsOnlyVolumesBackedByABlockDeviceInTableOrder) {
    // Left out: proc and tmpfs (no device), the /snap image, the bound sub-folder, the
    // /System/Volumes path and the disk that vanished from sysfs.
    EXPECT_THAT(
        devicesAndPaths(manager.getAllDiskDrive()),
        ElementsAre(Pair("nvme0n1p2", "/"), Pair("nvme0n1p1", "/boot/efi"),
                    Pair("sdb1", "/media/anna/My Passport"), Pair("sdb2", "/media/anna/Backup"),
                    Pair("loop1", "/mnt/image"), Pair("sdc1", "/media/anna/Line\nBreak"),
                    Pair("nvme0n1p2", "/mnt/readonly-root"), Pair("sde1", "/media/anna/Données")));
}

struct ExpectedVolume {
    const char *mountPath;
    const char *name;
    const char *format;
    bool internal;
    bool writable;
};

class VolumeRecord : public DiskListing, public ::testing::WithParamInterface<ExpectedVolume> {};

TEST_P(VolumeRecord, IsFilledFromTheDeviceAndTheFileSystem) {
    const ExpectedVolume expected = GetParam();
    const auto drive = driveAt(manager.getAllDiskDrive(), QString::fromUtf8(expected.mountPath));
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->name(), QString::fromUtf8(expected.name));
    EXPECT_EQ(drive->formatDescription(), QString::fromUtf8(expected.format));
    EXPECT_EQ(drive->isInternal(), expected.internal);
    EXPECT_EQ(drive->isEjectable(), !expected.internal);
    EXPECT_EQ(drive->groupType(), expected.internal ? 0u : 1u);
    EXPECT_EQ(drive->isWritable(), expected.writable);
    EXPECT_FALSE(drive->isGroup());
    EXPECT_EQ(drive->totalSize(), 1000 * 4096);
    EXPECT_EQ(drive->freeSize(), 250 * 4096);
}

INSTANTIATE_TEST_SUITE_P(
    Desktop, VolumeRecord,
    ::testing::Values(
        // The start-up volume is named after the machine.
        ExpectedVolume{"/", "testhost", "ext4", true, true},
        ExpectedVolume{"/boot/efi", "EFI", "FAT32", true, true},
        // ntfs-3g shows as fuseblk; the superblock says NTFS. Read-only on a USB disk.
        ExpectedVolume{"/media/anna/My Passport", "My Passport", "Windows NTFS", false, false},
        ExpectedVolume{"/media/anna/Backup", "Backup", "ext4", false, false},
        ExpectedVolume{"/mnt/image", "image", "SquashFS", false, false},
        // Removable card reader; no label, so the folder names it.
        ExpectedVolume{"/media/anna/Line\nBreak", "Line\nBreak", "Windows NTFS", false, true},
        // Internal and mounted read-only, but the medium itself is writable.
        ExpectedVolume{"/mnt/readonly-root", "readonly-root", "ext4", true, true},
        ExpectedVolume{"/media/anna/Données", "Données", "ext4", true, true}));

TEST_F(DiskListing, UnreadableValuesCountAsZeroAndNo) {
    fake.space->unreadable.insert(u"/media/anna/Backup"_s);
    fake.probe->set(u"/dev/sdb2"_s, {});
    const auto drive = driveAt(manager.getAllDiskDrive(), u"/media/anna/Backup"_s);
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->totalSize(), 0);
    EXPECT_EQ(drive->freeSize(), 0);
    EXPECT_EQ(drive->name(), u"Backup"_s);
    EXPECT_TRUE(drive->uuid().isEmpty());
    // An external volume whose read-only flag cannot be read is taken as writable.
    EXPECT_TRUE(drive->isWritable());
}

TEST_F(DiskListing, ReadsEachDeviceOnceHoweverManyMountsShareIt) {
    QList<MountEntry> entries;
    const MountEntry root = entryAt(desktopMountTable(), u"/"_s);
    for (int i = 0; i < 1000; ++i) {
        MountEntry bind = root;
        bind.id = 100 + i;
        bind.target = u"/srv/bind/%1"_s.arg(i);
        entries.append(bind);
    }
    fake.table->replace(entries);
    EXPECT_EQ(manager.getAllDiskDrive().size(), 1000);
    EXPECT_EQ(fake.probe->calls(u"/dev/nvme0n1p2"_s), 1);
}

TEST_F(DiskListing, EmptyOrUnreadableTableListsNothing) {
    fake.table->replace({});
    EXPECT_TRUE(manager.getAllDiskDrive().isEmpty());
}

TEST_F(DiskListing, SetInfoFillsTheDeviceAndSettlesTheNtfsName) {
    NTDiskDrive drive;
    drive.setMountPath(u"/media/anna/My Passport"_s);
    drive.setFormatDescription(u"FUSE"_s);
    manager.setInfoWithIOKit(drive);
    EXPECT_EQ(drive.bsdName(), u"sdb1"_s);
    EXPECT_EQ(drive.formatDescription(), u"Windows NTFS"_s);

    NTDiskDrive unknown;
    unknown.setMountPath(u"/nowhere"_s);
    unknown.setFormatDescription(u"NtFs"_s);
    manager.setInfoWithIOKit(unknown);
    EXPECT_TRUE(unknown.bsdName().isNull());
    EXPECT_EQ(unknown.formatDescription(), u"Windows NTFS"_s);
}

TEST_F(DiskListing, BsdNameForPathFindsTheInnermostMount) {
    const DiskSystem system = fake.system();
    EXPECT_EQ(bsdNameForPath(u"/media/anna/My Passport/photos/a.jpg"_s, system), u"sdb1"_s);
    EXPECT_EQ(bsdNameForPath(u"/media/anna/My Passport"_s, system), u"sdb1"_s);
    EXPECT_EQ(bsdNameForPath(u"/media/anna/My PassportX"_s, system), u"nvme0n1p2"_s);
    EXPECT_TRUE(bsdNameForPath(u"/proc/self"_s, system).isNull());
    fake.table->replace({});
    EXPECT_TRUE(bsdNameForPath(u"/"_s, system).isNull());
}

class MountEvents : public DiskListing {
protected:
    void SetUp() override {
        manager.setDelegate(&delegate);
        manager.startMonitoring();
    }
    RecordingDelegate delegate;
};

class Remount : public MountEvents, public ::testing::WithParamInterface<int> {};

// The kernel may hand the freed id straight to the new mount, or pick another.
TEST_P(Remount, UnmountAndMountAtTheSamePathBetweenTwoReadsAreBothReported) {
    auto entries = desktopMountTable();
    MountEntry remounted = entryAt(entries, u"/media/anna/My Passport"_s);
    entries.removeIf([](const MountEntry &e) { return e.id == 30; });
    remounted.id = GetParam();
    remounted.options = u"rw,relatime rw,user_id=1000"_s;
    entries.append(remounted);
    fake.table->replace(entries);
    manager.mountTableDidChange();
    EXPECT_THAT(delegate.events, ElementsAre("unmount /media/anna/My Passport",
                                             "mount sdb1 /media/anna/My Passport"));
}

INSTANTIATE_TEST_SUITE_P(MountIds, Remount, ::testing::Values(30, 50));

TEST_F(MountEvents, UnmountsPassEveryPathAndMountsOnlyListedVolumes) {
    auto entries = desktopMountTable();
    entries.removeIf([](const MountEntry &e) { return e.target == "/run"_L1; });
    MountEntry ram{60, 21, 0, u"tmpfs"_s, u"/tmp/ram"_s, u"tmpfs"_s, u"/"_s, {}};
    MountEntry unknownDevice{61, 21, 0, u"/dev/sdz9"_s, u"/media/x"_s, u"ext4"_s, u"/"_s, {}};
    entries << ram << unknownDevice;
    fake.table->replace(entries);
    manager.mountTableDidChange();
    EXPECT_THAT(delegate.events, ElementsAre("unmount /run"));
}

TEST_F(MountEvents, NothingChangedMeansNoEventsAndNoDelegateIsHarmless) {
    manager.mountTableDidChange();
    EXPECT_TRUE(delegate.events.empty());
    manager.setDelegate(nullptr);
    fake.table->replace({});
    manager.mountTableDidChange();
    EXPECT_TRUE(delegate.events.empty());
}

TEST_F(MountEvents, BlockEventsPassOnlyExternalNtfsDevices) {
    manager.blockDeviceDidChange(u"change"_s, u"sdb1"_s); // external NTFS, mounted
    manager.blockDeviceDidChange(u"change"_s, u"sdb2"_s); // external ext4
    manager.blockDeviceDidChange(u"change"_s, u"sde1"_s); // internal
    manager.blockDeviceDidChange(u"add"_s, u"sdz1"_s);    // unknown
    manager.blockDeviceDidChange(u"remove"_s, u"sdc1"_s);
    EXPECT_THAT(delegate.events, ElementsAre("mount sdb1 /media/anna/My Passport",
                                             "unmount /media/anna/Line\nBreak"));
}
