#include "disk/NTDiskManager.h"
#include "tests/disk/DriveLookup.h"
#include "tests/support/LoopImage.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

using namespace Qt::StringLiterals;
using testsupport::LoopImage;

namespace {

// Runs the event loop until the condition holds; false when it never does.
bool waitFor(const std::function<bool()> &condition) {
    QDeadlineTimer deadline(10000);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

class RecordingDelegate final : public DiskMountDelegate {
public:
    void diskDidMount(const NTDiskDrivePtr &drive) override { mounted.append(drive); }
    void diskDidUnMount(const QString &mountPath) override { unmounted.append(mountPath); }
    NTDiskDriveList mounted;
    QStringList unmounted;
};

class RealDisks : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testsupport::isRoot())
            GTEST_SKIP() << "needs root to attach loop devices and mount them";
        if (!testsupport::haveProgram(u"ntfs-3g"_s) || !testsupport::haveProgram(u"mkntfs"_s))
            GTEST_SKIP() << "needs ntfs-3g (apt-get install ntfs-3g)";
    }

    std::unique_ptr<LoopImage> makeImage(const QString &fsType, const QString &label) {
        QString why;
        // btrfs refuses devices under about 110 MiB.
        auto image = LoopImage::create(fsType == "btrfs"_L1 ? 128 : 64, &why);
        if (!image) {
            ADD_FAILURE() << why.toStdString();
            return nullptr;
        }
        if (!image->format(image->device(), fsType, label, &why)) {
            ADD_FAILURE() << why.toStdString();
            return nullptr;
        }
        return image;
    }

    NTDiskManager manager{DiskSystem::local()};
};

} // namespace

TEST_F(RealDisks, ReadOnlyNtfsOnALoopDeviceIsAnExternalWindowsNtfsVolume) {
    auto image = makeImage(u"ntfs"_s, u"Téstø Disk"_s);
    ASSERT_TRUE(image);
    QString why;
    const QString path = image->mount(image->device(), u"ntfs"_s, true, &why, u"My Disk"_s);
    ASSERT_FALSE(path.isEmpty()) << why.toStdString();

    const auto drive = driveAt(manager.getAllDiskDrive(), path);
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->bsdName(), LoopImage::kernelName(image->device()));
    EXPECT_EQ(drive->formatDescription(), u"Windows NTFS"_s);
    EXPECT_EQ(drive->name(), u"Téstø Disk"_s);
    EXPECT_FALSE(drive->isInternal());
    EXPECT_TRUE(drive->isEjectable());
    EXPECT_EQ(drive->groupType(), 1u);
    EXPECT_FALSE(drive->isWritable());
    EXPECT_FALSE(NTDiskManager::checkWrite(path));
    EXPECT_GT(drive->totalSize(), 60 * 1024 * 1024);
    EXPECT_GT(drive->freeSize(), 0);
    EXPECT_LE(drive->freeSize(), drive->totalSize());
    EXPECT_FALSE(drive->uuid().isEmpty());
    EXPECT_EQ(bsdNameForPath(path + u"/inside"_s), drive->bsdName());
}

TEST_F(RealDisks, Ext4AndBtrfsReadWriteWithoutLabelsAreNamedAfterTheirFolders) {
    auto ext4 = makeImage(u"ext4"_s, QString());
    auto btrfs = makeImage(u"btrfs"_s, u"Pool"_s);
    ASSERT_TRUE(ext4 && btrfs);
    QString why;
    const QString ext4Path =
        ext4->mount(ext4->device(), u"ext4"_s, false, &why, u"Line\nbreak and space"_s);
    ASSERT_FALSE(ext4Path.isEmpty()) << why.toStdString();
    const QString btrfsPath = btrfs->mount(btrfs->device(), u"btrfs"_s, false, &why);
    ASSERT_FALSE(btrfsPath.isEmpty()) << why.toStdString();

    const auto drives = manager.getAllDiskDrive();
    const auto ext4Drive = driveAt(drives, ext4Path);
    ASSERT_TRUE(ext4Drive);
    EXPECT_EQ(ext4Drive->name(), u"Line\nbreak and space"_s);
    EXPECT_EQ(ext4Drive->formatDescription(), u"ext4"_s);
    EXPECT_TRUE(ext4Drive->isWritable());
    EXPECT_TRUE(NTDiskManager::checkWrite(ext4Path));
    const auto btrfsDrive = driveAt(drives, btrfsPath);
    ASSERT_TRUE(btrfsDrive);
    EXPECT_EQ(btrfsDrive->bsdName(), LoopImage::kernelName(btrfs->device()));
    EXPECT_EQ(btrfsDrive->formatDescription(), u"Btrfs"_s);
    EXPECT_EQ(btrfsDrive->name(), u"Pool"_s);
}

TEST_F(RealDisks, TwoPartitionsOfOneDiskAreTwoVolumesWithTheirOwnDevices) {
    QString why;
    auto disk = LoopImage::createPartitioned(96, 2, &why);
    ASSERT_TRUE(disk) << why.toStdString();
    ASSERT_TRUE(disk->format(disk->partition(1), u"ntfs"_s, u"First"_s, &why)) << why.toStdString();
    ASSERT_TRUE(disk->format(disk->partition(2), u"ext4"_s, u"Second"_s, &why))
        << why.toStdString();
    const QString first = disk->mount(disk->partition(1), u"ntfs"_s, false, &why, u"a"_s);
    const QString second = disk->mount(disk->partition(2), u"ext4"_s, true, &why, u"b"_s);
    ASSERT_FALSE(first.isEmpty() || second.isEmpty()) << why.toStdString();

    const auto drives = manager.getAllDiskDrive();
    const auto firstDrive = driveAt(drives, first);
    const auto secondDrive = driveAt(drives, second);
    ASSERT_TRUE(firstDrive && secondDrive);
    EXPECT_EQ(firstDrive->bsdName(), LoopImage::kernelName(disk->partition(1)));
    EXPECT_EQ(secondDrive->bsdName(), LoopImage::kernelName(disk->partition(2)));
    EXPECT_EQ(firstDrive->formatDescription(), u"Windows NTFS"_s);
    EXPECT_TRUE(firstDrive->isWritable());
    EXPECT_FALSE(secondDrive->isWritable());
    EXPECT_TRUE(secondDrive->isEjectable());
    EXPECT_LT(drives.indexOf(firstDrive), drives.indexOf(secondDrive));
}

TEST_F(RealDisks, MountMonitorReportsMountsUnmountsAndRemountsAtTheSamePath) {
    RecordingDelegate delegate;
    manager.setDelegate(&delegate);
    ASSERT_TRUE(manager.startMonitoring());
    auto image = makeImage(u"ntfs"_s, u"Events"_s);
    ASSERT_TRUE(image);
    QString why;
    const QString path = image->mount(image->device(), u"ntfs"_s, true, &why);
    ASSERT_FALSE(path.isEmpty()) << why.toStdString();
    ASSERT_TRUE(waitFor([&] { return !delegate.mounted.isEmpty(); }));
    EXPECT_EQ(delegate.mounted.first()->mountPath(), path);
    EXPECT_EQ(delegate.mounted.first()->bsdName(), LoopImage::kernelName(image->device()));
    EXPECT_FALSE(delegate.mounted.first()->isWritable());

    // Read-only to read/write without the event loop running in between: both events arrive.
    delegate.mounted.clear();
    ASSERT_TRUE(image->unmount(path));
    ASSERT_TRUE(testsupport::runCommand(u"ntfs-3g"_s, {image->device(), path}).ok());
    ASSERT_TRUE(waitFor([&] { return !delegate.mounted.isEmpty(); }));
    EXPECT_EQ(delegate.unmounted, QStringList{path});
    EXPECT_TRUE(delegate.mounted.first()->isWritable());

    delegate.unmounted.clear();
    ASSERT_TRUE(image->unmount(path));
    ASSERT_TRUE(waitFor([&] { return !delegate.unmounted.isEmpty(); }));
    EXPECT_EQ(delegate.unmounted, QStringList{path});
}

TEST_F(RealDisks, CommandLineListingAgreesWithFindmnt) {
    auto image = makeImage(u"ntfs"_s, u"Compare"_s);
    ASSERT_TRUE(image);
    QString why;
    ASSERT_FALSE(image->mount(image->device(), u"ntfs"_s, true, &why, u"with space"_s).isEmpty())
        << why.toStdString();

    const auto listing = testsupport::runCommand(
        QStringLiteral(VANTRELO_BINARY_DIR "/ctl/vantreloctl"), {u"list"_s, u"--json"_s});
    ASSERT_TRUE(listing.ok()) << listing.output.toStdString();
    QMap<QString, QJsonObject> listed;
    for (const auto &value : QJsonDocument::fromJson(listing.output.toUtf8()).array())
        listed.insert(value.toObject().value("mountPath"_L1).toString(), value.toObject());

    const auto findmnt = testsupport::runCommand(
        u"findmnt"_s, {u"-J"_s, u"-l"_s, u"-b"_s, u"-o"_s, u"SOURCE,TARGET,SIZE,FSROOT"_s});
    ASSERT_TRUE(findmnt.ok()) << findmnt.output.toStdString();
    int blockBacked = 0;
    const auto filesystems =
        QJsonDocument::fromJson(findmnt.output.toUtf8()).object().value("filesystems"_L1).toArray();
    for (const auto &value : filesystems) {
        const QJsonObject fs = value.toObject();
        const QString source = fs.value("source"_L1).toString();
        const QFileInfo node(source);
        if (!source.startsWith("/dev/"_L1) || !node.exists() ||
            fs.value("fsroot"_L1).toString() != "/"_L1)
            continue;
        ++blockBacked;
        const QString target = fs.value("target"_L1).toString();
        ASSERT_TRUE(listed.contains(target)) << target.toStdString();
        const QJsonObject drive = listed.take(target);
        EXPECT_EQ(drive.value("bsdName"_L1).toString(),
                  QFileInfo(node.canonicalFilePath()).fileName());
        EXPECT_EQ(drive.value("totalSize"_L1).toInteger(), fs.value("size"_L1).toInteger())
            << target.toStdString();
    }
    EXPECT_GE(blockBacked, 1);
    EXPECT_TRUE(listed.isEmpty()) << "listed but not in findmnt: "
                                  << listed.keys().join(u", "_s).toStdString();
}
