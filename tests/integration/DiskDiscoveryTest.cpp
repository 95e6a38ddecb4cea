#include "disk/NTDiskManager.h"
#include "tests/support/LoopImage.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"
#include "tests/support/Udevd.h"
#include "util/TLUtility.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using testsupport::LoopImage;
using testsupport::runCommand;

namespace {

// The program always runs as an ordinary desktop account, which cannot open device nodes.
QStringList asNobody(const QString &program, const QStringList &arguments) {
    return QStringList{u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s, u"--"_s,
                       program} +
           arguments;
}

// The disk manager in a process of an ordinary account; one line per delegate call.
class Watcher {
public:
    ~Watcher() {
        m_process.kill();
        m_process.waitForFinished();
    }
    // Empty once it has listed or started its session and waits for go().
    QString start(const QString &mode) {
        m_process.start(u"setpriv"_s, asNobody(QStringLiteral(VANTRELO_DISK_WATCH), {mode}));
        if (linesWith(u"ready"_s, 1).isEmpty())
            return u"the watcher did not start: "_s +
                   QString::fromUtf8(m_process.readAllStandardError());
        return {};
    }
    void go() { m_process.write("go\n"); }
    // The lines that mention `text` once `count` have come (fewer when the watcher stops). Other
    // tests on this machine may mount too; only their own path tells lines apart.
    QStringList linesWith(const QString &text, int count) {
        while (m_lines.filter(text).size() < count && m_process.waitForReadyRead(20000))
            while (m_process.canReadLine())
                m_lines << QString::fromUtf8(m_process.readLine()).chopped(1);
        return std::exchange(m_lines, {}).filter(text);
    }

private:
    QProcess m_process;
    QStringList m_lines;
};

class RealDisks : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testsupport::isRoot())
            GTEST_SKIP() << "needs root to attach loop devices and mount them";
        ASSERT_EQ(udevd.start(), QString());
    }
    // A formatted device whose file-system facts udev's database holds.
    void format(LoopImage &image, const QString &device, const QString &fsType,
                const QString &label) {
        QString why;
        ASSERT_TRUE(image.format(device, fsType, label, &why)) << why.toStdString();
        ASSERT_EQ(testsupport::Udevd::refresh(device), QString());
    }
    static QString blkidValue(const QString &device, const QString &tag) {
        return runCommand(u"blkid"_s, {u"-p"_s, u"-o"_s, u"value"_s, u"-s"_s, tag, device})
            .output.trimmed();
    }

    testsupport::Udevd udevd;
};

} // namespace

TEST_F(RealDisks, LoopVolumesAreListedWithTheirFactsAndAsFindmntShowsThem) {
    QString why;
    auto ntfs = LoopImage::create(64, &why);
    auto disk = LoopImage::createPartitioned(96, 2, &why);
    ASSERT_TRUE(ntfs && disk) << why.toStdString();
    // Any image can format and mount any device; each one unmounts its own when it goes.
    const struct {
        QString device, fsType, label, folder, format;
        bool readOnly;
    } volumes[] = {
        {ntfs->device(), u"ntfs"_s, u"Téstø Disk"_s, u"My Disk"_s, u"Windows NTFS"_s, true},
        {disk->partition(1), u"ntfs"_s, u"First"_s, u"a"_s, u"Windows NTFS"_s, false},
        // Without a label the folder names it, and the listings must escape that name.
        {disk->partition(2), u"ext4"_s, {}, u"Line\nbreak \"and\" \\ \tspace"_s, u"ext4"_s, true}};
    QStringList paths;
    for (const auto &volume : volumes) {
        ASSERT_NO_FATAL_FAILURE(format(*ntfs, volume.device, volume.fsType, volume.label));
        paths << ntfs->mount(volume.device, volume.fsType, volume.readOnly, &why, volume.folder);
        ASSERT_FALSE(paths.last().isEmpty()) << why.toStdString();
    }
    const QString ctl = QStringLiteral(VANTRELO_BINARY_DIR "/ctl/vantreloctl");
    const auto json = runCommand(u"setpriv"_s, asNobody(ctl, {u"list"_s, u"--json"_s}));
    const auto text = runCommand(u"setpriv"_s, asNobody(ctl, {u"list"_s}));
    const auto bytes = runCommand(u"setpriv"_s, asNobody(ctl, {u"list"_s, u"--bytes"_s}));
    ASSERT_TRUE(json.ok() && text.ok() && bytes.ok())
        << json.output.toStdString() << text.output.toStdString() << bytes.output.toStdString();
    QHash<QString, QJsonObject> listed;
    for (const QJsonValue &value : QJsonDocument::fromJson(json.output.toUtf8()).array())
        listed.insert(value[u"mountPath"_s].toString(), value.toObject());
    EXPECT_EQ(text.output.count(u'\n'), listed.size() + 1); // a heading, then one line each
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
        // Both text listings give the volume's line its sizes, read by a person or in bytes.
        const qint64 total = drive[u"totalSize"_s].toInteger();
        const QString sizes = u'\t' + volume.format + u'\t';
        EXPECT_TRUE(text.output.contains(sizes + TLUtility::getFileSizeStrWithSize(total) + u'\t'));
        EXPECT_TRUE(bytes.output.contains(sizes + QString::number(total) + u'\t'));
        EXPECT_EQ(drive[u"uuid"_s].toString(), blkidValue(volume.device, u"UUID"_s));
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

// As the application runs it, as an ordinary account: "shared" lists (on another thread, as the
// window's first list build does) before a volume mounts and watches after; "session" starts with
// that volume mounted and passes on only external NTFS volumes. Both report the volume's facts.
TEST_F(RealDisks, MountEventsReachAnOrdinaryAccountWithTheVolumesFacts) {
    QString why;
    auto image = LoopImage::createPartitioned(128, 3, &why);
    ASSERT_TRUE(image) << why.toStdString();
    const QString early = image->partition(1), ext4 = image->partition(2),
                  late = image->partition(3), scratch = image->scratchDir();
    ASSERT_NO_FATAL_FAILURE(format(*image, early, u"ntfs"_s, u"50%1off Events"_s));
    ASSERT_NO_FATAL_FAILURE(format(*image, ext4, u"ext4"_s, u"Other"_s));
    ASSERT_NO_FATAL_FAILURE(format(*image, late, u"ntfs"_s, u"Session"_s));
    const auto mounted = [&](const QString &device, const QString &path, const QString &label) {
        return u"mount\t%1\t%2\tWindows NTFS\t%3\t%4\t"_s.arg(LoopImage::kernelName(device), path,
                                                              label, blkidValue(device, u"UUID"_s));
    };
    Watcher shared, session;
    ASSERT_EQ(shared.start(u"shared"_s), QString());
    const QString earlyPath = image->mount(early, u"ntfs"_s, true, &why, u"early"_s);
    ASSERT_FALSE(earlyPath.isEmpty()) << why.toStdString();
    ASSERT_EQ(session.start(u"session"_s), QString());
    shared.go();
    session.go();
    const QString earlyLine = mounted(early, earlyPath, u"50%1off Events"_s);
    EXPECT_EQ(shared.linesWith(earlyPath, 1), QStringList{earlyLine + u"ro"_s});

    const QString ext4Path = image->mount(ext4, u"ext4"_s, false, &why, u"ext4"_s);
    const QString latePath = image->mount(late, u"ntfs"_s, false, &why, u"late"_s);
    ASSERT_FALSE(ext4Path.isEmpty() || latePath.isEmpty()) << why.toStdString();
    // The ext4 volume mounted first; by the time the NTFS one is reported it was seen too.
    EXPECT_EQ(session.linesWith(scratch, 1),
              QStringList{mounted(late, latePath, u"Session"_s) + u"rw"_s});

    // Read-only to read/write at once: both events arrive.
    ASSERT_TRUE(image->unmount(earlyPath));
    ASSERT_TRUE(runCommand(u"ntfs-3g"_s, {early, earlyPath}).ok());
    const QStringList remounted{u"unmount\t"_s + earlyPath, earlyLine + u"rw"_s};
    EXPECT_EQ(shared.linesWith(earlyPath, 2), remounted);
    EXPECT_EQ(session.linesWith(scratch, 2), remounted);
    ASSERT_TRUE(image->unmount(ext4Path) && image->unmount(earlyPath));
    EXPECT_EQ(session.linesWith(scratch, 1), QStringList{u"unmount\t"_s + earlyPath});
}
