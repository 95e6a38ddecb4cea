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

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using testsupport::LoopImage;
using testsupport::runCommand;

namespace {

class RealDisks : public ::testing::Test, public DiskMountDelegate {
protected:
    void SetUp() override {
        if (!testsupport::isRoot())
            GTEST_SKIP() << "needs root to attach loop devices and mount them";
    }
    void diskDidMount(const NTDiskDrivePtr &drive) override {
        events << u"mount %1 %2 %3"_s.arg(drive->bsdName(), drive->mountPath(),
                                          drive->isWritable() ? u"rw"_s : u"ro"_s);
    }
    void diskDidUnMount(const QString &mountPath) override { events << u"unmount "_s + mountPath; }
    // Other tests on this machine may mount too; only the events about `path` count.
    QStringList eventsAt(const QString &path, int count) {
        const QDeadlineTimer deadline(10000);
        while (events.filter(path).size() < count && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        return std::exchange(events, {}).filter(path);
    }

    NTDiskManager manager{DiskSystem::local()};
    QStringList events;
};

} // namespace

TEST_F(RealDisks, LoopVolumesAreListedWithTheirFactsAndAsFindmntShowsThem) {
    QString why;
    auto ntfs = LoopImage::create(64, &why);
    auto ext4 = LoopImage::create(64, &why);
    auto btrfs = LoopImage::create(128, &why); // btrfs refuses devices under about 110 MiB
    auto disk = LoopImage::createPartitioned(96, 2, &why);
    ASSERT_TRUE(ntfs && ext4 && btrfs && disk) << why.toStdString();
    const struct {
        LoopImage *image;
        QString device, fsType, label, folder, format;
        bool readOnly;
    } volumes[] = {
        {ntfs.get(), ntfs->device(), u"ntfs"_s, u"Téstø Disk"_s, u"My Disk"_s, u"Windows NTFS"_s,
         true},
        {ext4.get(), ext4->device(), u"ext4"_s, {}, u"Line\nbreak and space"_s, u"ext4"_s, false},
        {btrfs.get(), btrfs->device(), u"btrfs"_s, u"Pool"_s, u"pool"_s, u"Btrfs"_s, false},
        {disk.get(), disk->partition(1), u"ntfs"_s, u"First"_s, u"a"_s, u"Windows NTFS"_s, false},
        {disk.get(), disk->partition(2), u"ext4"_s, u"Second"_s, u"b"_s, u"ext4"_s, true}};
    QStringList paths;
    for (const auto &volume : volumes) {
        ASSERT_TRUE(volume.image->format(volume.device, volume.fsType, volume.label, &why))
            << why.toStdString();
        paths << volume.image->mount(volume.device, volume.fsType, volume.readOnly, &why,
                                     volume.folder);
        ASSERT_FALSE(paths.last().isEmpty()) << why.toStdString();
    }

    const NTDiskDriveList drives = manager.getAllDiskDrive();
    for (qsizetype i = 0; i < paths.size(); ++i) {
        const auto &volume = volumes[i];
        SCOPED_TRACE(volume.folder.toStdString());
        const NTDiskDrivePtr drive = driveAt(drives, paths[i]);
        ASSERT_TRUE(drive);
        EXPECT_EQ(drive->bsdName(), LoopImage::kernelName(volume.device));
        EXPECT_EQ(drive->name(), volume.label.isEmpty() ? volume.folder : volume.label);
        EXPECT_EQ(drive->formatDescription(), volume.format);
        EXPECT_FALSE(drive->isInternal());
        EXPECT_TRUE(drive->isEjectable());
        EXPECT_EQ(drive->isWritable(), !volume.readOnly);
        EXPECT_EQ(NTDiskManager::checkWrite(paths[i]), !volume.readOnly);
        EXPECT_GT(drive->totalSize(), 30 * 1024 * 1024);
        EXPECT_GT(drive->freeSize(), 0);
        EXPECT_LE(drive->freeSize(), drive->totalSize());
        EXPECT_FALSE(drive->uuid().isEmpty());
        EXPECT_EQ(bsdNameForPath(paths[i] + u"/inside"_s), drive->bsdName());
    }

    // The command-line listing has every block-backed volume findmnt shows, and nothing else.
    const auto listing = runCommand(QStringLiteral(VANTRELO_BINARY_DIR "/ctl/vantreloctl"),
                                    {u"list"_s, u"--json"_s});
    ASSERT_TRUE(listing.ok()) << listing.output.toStdString();
    QMap<QString, QJsonValue> listed;
    for (const QJsonValue &value : QJsonDocument::fromJson(listing.output.toUtf8()).array())
        listed.insert(value[u"mountPath"_s].toString(), value);
    ASSERT_TRUE(listed.contains(paths.first())) << listing.output.toStdString();
    const auto findmnt = runCommand(
        u"findmnt"_s, {u"-J"_s, u"-l"_s, u"-b"_s, u"-o"_s, u"SOURCE,TARGET,SIZE,FSROOT"_s});
    ASSERT_TRUE(findmnt.ok()) << findmnt.output.toStdString();
    const QJsonDocument table = QJsonDocument::fromJson(findmnt.output.toUtf8());
    for (const QJsonValue &fs : table[u"filesystems"_s].toArray()) {
        const QFileInfo node(fs[u"source"_s].toString());
        if (!node.filePath().startsWith("/dev/"_L1) || !node.exists() ||
            fs[u"fsroot"_s].toString() != "/"_L1)
            continue;
        const QString target = fs[u"target"_s].toString();
        ASSERT_TRUE(listed.contains(target)) << target.toStdString();
        const QJsonValue drive = listed.take(target);
        EXPECT_EQ(drive[u"bsdName"_s].toString(), QFileInfo(node.canonicalFilePath()).fileName());
        EXPECT_EQ(drive[u"totalSize"_s].toInteger(), fs[u"size"_s].toInteger())
            << target.toStdString();
    }
    EXPECT_TRUE(listed.isEmpty()) << "not in findmnt: "
                                  << listed.keys().join(u", "_s).toStdString();
}

TEST_F(RealDisks, MountMonitorReportsMountsUnmountsAndRemountsAtTheSamePath) {
    manager.setDelegate(this);
    ASSERT_TRUE(manager.startMonitoring());
    QString why;
    auto image = LoopImage::create(64, &why);
    ASSERT_TRUE(image && image->format(image->device(), u"ntfs"_s, u"Events"_s, &why))
        << why.toStdString();
    const QString path = image->mount(image->device(), u"ntfs"_s, true, &why);
    ASSERT_FALSE(path.isEmpty()) << why.toStdString();
    const QString mounted = u"mount %1 %2 "_s.arg(LoopImage::kernelName(image->device()), path);
    EXPECT_EQ(eventsAt(path, 1), QStringList{mounted + u"ro"_s});

    // Read-only to read/write without the event loop running in between: both events arrive.
    ASSERT_TRUE(image->unmount(path));
    ASSERT_TRUE(runCommand(u"ntfs-3g"_s, {image->device(), path}).ok());
    EXPECT_EQ(eventsAt(path, 2), (QStringList{u"unmount "_s + path, mounted + u"rw"_s}));
    ASSERT_TRUE(image->unmount(path));
    EXPECT_EQ(eventsAt(path, 1), QStringList{u"unmount "_s + path});
}
