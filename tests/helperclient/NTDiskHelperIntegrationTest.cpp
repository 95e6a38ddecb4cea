#include "HelperTestSupport.h"
#include "UDisksEnvironment.h"
#include "helperclient/NTDiskHelper.h"
#include "helperclient/UDisksClient.h"
#include "tests/support/LoopImage.h"
#include "tests/support/SystemCommand.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QFile>
#include <QFileInfo>
#include <QThreadPool>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using helpertest::waitUntil;
using testsupport::LoopImage;

namespace {

// The mount target of `device` in the kernel's table, "" when it is not mounted.
QString mountPointOf(const QString &device) {
    QFile file(u"/proc/self/mountinfo"_s);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    for (const QByteArray &line : file.readAll().split('\n')) {
        const qsizetype dash = line.indexOf(" - ");
        if (dash < 0)
            continue;
        const QList<QByteArray> after = line.mid(dash + 3).split(' ');
        if (after.size() < 2 || after[1] != device.toUtf8())
            continue;
        QByteArray target = line.split(' ').value(4);
        target.replace("\\040", " ");
        return QString::fromUtf8(target);
    }
    return {};
}

QString labelOf(const QString &device) {
    return testsupport::runCommand(u"blkid"_s,
                                   {u"-p"_s, u"-o"_s, u"value"_s, u"-s"_s, u"LABEL"_s, device})
        .output.trimmed();
}

// What udisksd currently believes about a block device; invalid when it has no such property.
QVariant udisksProperty(const QString &bsdName, const QString &interface, const QString &name) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        u"org.freedesktop.UDisks2"_s, UDisksClient::blockObjectPath(bsdName),
        u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    message.setArguments({interface, name});
    const QDBusMessage reply = QDBusConnection::systemBus().call(message);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {};
    return reply.arguments().first().value<QDBusVariant>().variant();
}

// udev settling is not enough: udisksd picks up uevents on its own schedule.
bool udisksSeesLabel(const QString &device, const QString &label) {
    const QString bsdName = LoopImage::kernelName(device);
    return waitUntil([&] {
        return udisksProperty(bsdName, u"org.freedesktop.UDisks2.Block"_s, u"IdLabel"_s)
                       .toString() == label &&
               udisksProperty(bsdName, u"org.freedesktop.UDisks2.Filesystem"_s, u"Size"_s)
                   .isValid();
    });
}

bool loopAttached(const QString &bsdName) {
    return QFileInfo::exists(u"/sys/block/%1/loop/backing_file"_s.arg(bsdName));
}

class NTDiskHelperIntegration : public testing::Test {
protected:
    static void SetUpTestSuite() { s_env = UDisksEnvironment::start(&s_why).release(); }
    static void TearDownTestSuite() {
        delete s_env;
        s_env = nullptr;
    }
    void SetUp() override {
        if (!s_env)
            GTEST_SKIP() << s_why.toStdString();
    }

    // Lets the background requests finish, then udev and udisksd catch up.
    void finish() {
        QThreadPool::globalInstance()->waitForDone();
        s_env->announce();
    }

    // A fresh NTFS loop volume that udisksd already knows.
    std::unique_ptr<LoopImage> ntfsImage(const QString &label) {
        QString why;
        auto image = LoopImage::create(64, &why);
        if (image && image->format(image->device(), u"ntfs"_s, label, &why)) {
            s_env->announce(image->device());
            if (udisksSeesLabel(image->device(), label))
                return image;
            why = u"udisksd never saw the new file system"_s;
        }
        ADD_FAILURE() << why.toStdString();
        return nullptr;
    }

    static inline UDisksEnvironment *s_env = nullptr;
    static inline QString s_why;
};

TEST_F(NTDiskHelperIntegration, NtfsVolumeIsMountedRenamedUnmountedAndEjected) {
    auto image = ntfsImage(u"VANTRELO"_s);
    ASSERT_TRUE(image);
    const QString device = image->device();
    const QString bsdName = LoopImage::kernelName(device);

    NTDiskHelper::mountDiskWithBSDName(bsdName);
    finish();
    ASSERT_TRUE(waitUntil([&] { return !mountPointOf(device).isEmpty(); }))
        << "udisksd did not mount " << device.toStdString();
    EXPECT_TRUE(mountPointOf(device).endsWith(u"/VANTRELO"_s))
        << mountPointOf(device).toStdString();

    NTDiskHelper::unmountDiskWithBSDName(bsdName);
    finish();
    ASSERT_TRUE(waitUntil([&] { return mountPointOf(device).isEmpty(); }));

    NTDiskHelper::rename(bsdName, u"RENAMED"_s);
    finish();
    ASSERT_TRUE(waitUntil([&] { return labelOf(device) == u"RENAMED"_s; }))
        << "label is " << labelOf(device).toStdString();
    ASSERT_TRUE(udisksSeesLabel(device, u"RENAMED"_s));

    NTDiskHelper::mountDiskWithBSDName(bsdName);
    finish();
    ASSERT_TRUE(waitUntil([&] { return !mountPointOf(device).isEmpty(); }));
    const QString mountPath = mountPointOf(device);
    EXPECT_TRUE(mountPath.endsWith(u"/RENAMED"_s)) << mountPath.toStdString();

    auto drive = std::make_shared<NTDiskDrive>();
    drive->setMountPath(mountPath);
    drive->setBsdName(bsdName);
    NTDiskHelper::ejectDiskWithDrive(drive);
    finish();
    ASSERT_TRUE(waitUntil([&] { return mountPointOf(device).isEmpty(); }));
    // A disk image is ejected by detaching its loop device.
    EXPECT_TRUE(waitUntil([&] { return !loopAttached(bsdName); }));

    // The second eject of the same drive finds nothing and does no harm.
    NTDiskHelper::ejectDiskWithDrive(drive);
    finish();
    UDisksClient udisks;
    EXPECT_FALSE(udisks.unmountAndEject(mountPath));
    EXPECT_FALSE(udisks.lastError().isEmpty());
}

TEST_F(NTDiskHelperIntegration, WholeDiskRequestsReachEveryPartition) {
    QString why;
    auto image = LoopImage::createPartitioned(96, 2, &why);
    ASSERT_TRUE(image) << why.toStdString();
    const QString first = image->partition(1);
    const QString second = image->partition(2);
    ASSERT_TRUE(image->format(first, u"ntfs"_s, u"PARTONE"_s, &why)) << why.toStdString();
    ASSERT_TRUE(image->format(second, u"ntfs"_s, u"PARTTWO"_s, &why)) << why.toStdString();
    s_env->announce(first);
    s_env->announce(second);
    ASSERT_TRUE(udisksSeesLabel(first, u"PARTONE"_s));
    ASSERT_TRUE(udisksSeesLabel(second, u"PARTTWO"_s));

    NTDiskHelper::mountDiskWithBSDName(LoopImage::kernelName(image->device()));
    finish();
    ASSERT_TRUE(waitUntil(
        [&] { return !mountPointOf(first).isEmpty() && !mountPointOf(second).isEmpty(); }));

    // Naming one partition unmounts the whole disk.
    NTDiskHelper::unmountDiskWithBSDName(LoopImage::kernelName(first));
    finish();
    EXPECT_TRUE(
        waitUntil([&] { return mountPointOf(first).isEmpty() && mountPointOf(second).isEmpty(); }));
}

TEST_F(NTDiskHelperIntegration, UnknownOrStaleTargetsChangeNothing) {
    auto image = ntfsImage(u"STAYS"_s);
    ASSERT_TRUE(image);
    const QString device = image->device();

    auto stale = std::make_shared<NTDiskDrive>();
    stale->setMountPath(u"/media/no-such-volume"_s);
    NTDiskHelper::ejectDiskWithDrive(stale);
    NTDiskHelper::ejectDiskWithDrive(std::make_shared<NTDiskDrive>());
    NTDiskHelper::ejectDiskWithDrive(nullptr);
    NTDiskHelper::mountDiskWithBSDName(u"nosuchdisk9"_s);
    NTDiskHelper::rename(u"nosuchdisk9"_s, u"X"_s);
    NTDiskHelper::unmountDiskWithBSDName(u"../../etc"_s);
    finish();

    UDisksClient udisks;
    EXPECT_FALSE(udisks.mountWhole(u"nosuchdisk9"_s));
    EXPECT_FALSE(udisks.rename(u"nosuchdisk9"_s, u"X"_s));
    EXPECT_TRUE(loopAttached(LoopImage::kernelName(device)));
    EXPECT_EQ(labelOf(device), u"STAYS"_s);
}

} // namespace
