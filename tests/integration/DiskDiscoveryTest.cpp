#include "disk/NTDiskManager.h"
#include "tests/support/LoopImage.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaProperty>

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
    auto btrfs = LoopImage::create(128, &why); // btrfs refuses devices under about 110 MiB
    auto disk = LoopImage::createPartitioned(96, 2, &why);
    ASSERT_TRUE(ntfs && btrfs && disk) << why.toStdString();
    // Any image can format and mount any device; each one unmounts its own when it goes.
    const struct {
        QString device, fsType, label, folder, format;
        bool readOnly;
    } volumes[] = {
        {ntfs->device(), u"ntfs"_s, u"Téstø Disk"_s, u"My Disk"_s, u"Windows NTFS"_s, true},
        {btrfs->device(), u"btrfs"_s, u"Pool"_s, u"pool"_s, u"Btrfs"_s, false},
        {disk->partition(1), u"ntfs"_s, u"First"_s, u"a"_s, u"Windows NTFS"_s, false},
        // Without a label the folder names it, and the listings must escape that name.
        {disk->partition(2), u"ext4"_s, {}, u"Line\nbreak \"and\" \\ \tspace"_s, u"ext4"_s, true}};
    QStringList paths;
    for (const auto &volume : volumes) {
        ASSERT_TRUE(ntfs->format(volume.device, volume.fsType, volume.label, &why))
            << why.toStdString();
        paths << ntfs->mount(volume.device, volume.fsType, volume.readOnly, &why, volume.folder);
        ASSERT_FALSE(paths.last().isEmpty()) << why.toStdString();
    }
    const QString ctl = QStringLiteral(VANTRELO_BINARY_DIR "/ctl/vantreloctl");
    const auto json = runCommand(ctl, {u"list"_s, u"--json"_s});
    const auto text = runCommand(ctl, {u"list"_s});
    ASSERT_TRUE(json.ok() && text.ok()) << json.output.toStdString() << text.output.toStdString();
    QHash<QString, QJsonObject> listed;
    for (const QJsonValue &value : QJsonDocument::fromJson(json.output.toUtf8()).array())
        listed.insert(value[u"mountPath"_s].toString(), value.toObject());
    EXPECT_EQ(text.output.count(u'\n'), listed.size() + 1); // a heading, then one line each
    QStringList keys; // every property of the record but the icon
    for (int i = 0; i < NTDiskDrive::staticMetaObject.propertyCount(); ++i)
        keys << QString::fromLatin1(NTDiskDrive::staticMetaObject.property(i).name());
    keys.removeOne(u"icon"_s);
    keys.sort();
    EXPECT_EQ(listed.value(paths.first()).keys(), keys);
    for (qsizetype i = 0; i < paths.size(); ++i) {
        const auto &volume = volumes[i];
        const QString bsdName = LoopImage::kernelName(volume.device);
        const QJsonObject drive = listed.value(paths[i]);
        SCOPED_TRACE(volume.folder.toStdString());
        EXPECT_EQ(drive[u"bsdName"_s], QJsonValue(bsdName));
        EXPECT_EQ(drive[u"name"_s],
                  QJsonValue(volume.label.isEmpty() ? volume.folder : volume.label));
        EXPECT_EQ(drive[u"formatDescription"_s], QJsonValue(volume.format));
        EXPECT_EQ(drive[u"isInternal"_s], QJsonValue(false));
        EXPECT_EQ(drive[u"isWritable"_s], QJsonValue(!volume.readOnly));
        EXPECT_EQ(NTDiskManager::checkWrite(paths[i]), !volume.readOnly);
        EXPECT_GT(drive[u"freeSize"_s].toInteger(), 0);
        EXPECT_LE(drive[u"freeSize"_s].toInteger(), drive[u"totalSize"_s].toInteger());
        EXPECT_NE(drive[u"uuid"_s].toString(), QString());
        EXPECT_EQ(bsdNameForPath(paths[i] + u"/inside"_s), bsdName);
    }

    // Every block-backed volume findmnt shows is listed with its device and size, and no other.
    const auto findmnt = runCommand(
        u"findmnt"_s, {u"-J"_s, u"-l"_s, u"-b"_s, u"-o"_s, u"SOURCE,TARGET,SIZE,FSROOT"_s});
    ASSERT_TRUE(findmnt.ok()) << findmnt.output.toStdString();
    for (const QJsonValue &fs :
         QJsonDocument::fromJson(findmnt.output.toUtf8())[u"filesystems"_s].toArray()) {
        const QFileInfo node(fs[u"source"_s].toString());
        if (!node.filePath().startsWith("/dev/"_L1) || !node.exists() ||
            fs[u"fsroot"_s].toString() != "/"_L1)
            continue;
        const QString target = fs[u"target"_s].toString();
        ASSERT_TRUE(listed.contains(target)) << target.toStdString();
        const QJsonObject drive = listed.take(target);
        EXPECT_EQ(drive[u"bsdName"_s].toString(), QFileInfo(node.canonicalFilePath()).fileName());
        EXPECT_EQ(drive[u"totalSize"_s].toInteger(), fs[u"size"_s].toInteger())
            << target.toStdString();
    }
    EXPECT_TRUE(listed.isEmpty()) << listed.keys().join(u", "_s).toStdString();
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
