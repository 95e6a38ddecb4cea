#include "HelperTestSupport.h"
#include "UDisksEnvironment.h"
#include "helperclient/NTDiskHelper.h"
#include "helperclient/UDisksClient.h"
#include "tests/support/LoopImage.h"
#include "tests/support/SystemCommand.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QFileInfo>
#include <QThreadPool>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using helpertest::waitUntil;
using testsupport::LoopImage;
using testsupport::runCommand;

namespace {

// Where the kernel has `device` mounted, "" when nowhere.
QString mountPointOf(const QString &device) {
    return runCommand(u"findmnt"_s, {u"-n"_s, u"-o"_s, u"TARGET"_s, u"--source"_s, device})
        .output.trimmed();
}

QString labelOf(const QString &device) {
    return runCommand(u"blkid"_s, {u"-p"_s, u"-o"_s, u"value"_s, u"-s"_s, u"LABEL"_s, device})
        .output.trimmed();
}

bool loopAttached(const QString &device) {
    return QFileInfo::exists(
        u"/sys/block/%1/loop/backing_file"_s.arg(LoopImage::kernelName(device)));
}

// What udisksd currently believes about a block device; invalid when it has no such property.
QVariant udisksProperty(const QString &device, const QString &interface, const QString &name) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        u"org.freedesktop.UDisks2"_s, UDisksClient::blockObjectPath(LoopImage::kernelName(device)),
        u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    message.setArguments({QString(u"org.freedesktop.UDisks2."_s + interface), name});
    const QDBusMessage reply = QDBusConnection::systemBus().call(message);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {};
    return reply.arguments().first().value<QDBusVariant>().variant();
}

// udev settling is not enough: udisksd picks up uevents on its own schedule.
bool udisksSeesLabel(const QString &device, const QString &label) {
    return waitUntil([&] {
        return udisksProperty(device, u"Block"_s, u"IdLabel"_s).toString() == label &&
               udisksProperty(device, u"Filesystem"_s, u"Size"_s).isValid();
    });
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

    // Runs a request, lets it finish in the background and udev catch up, then waits until the
    // disks show `state`.
    static bool after(const std::function<void()> &request, const std::function<bool()> &state) {
        request();
        QThreadPool::globalInstance()->waitForDone();
        s_env->announce();
        return waitUntil(state);
    }

    // Formats `devices` as NTFS with `labels` and waits until udisksd knows them.
    static void formatNtfs(LoopImage &image, const QStringList &devices,
                           const QStringList &labels) {
        QString why;
        for (qsizetype i = 0; i < devices.size(); ++i) {
            ASSERT_TRUE(image.format(devices[i], u"ntfs"_s, labels[i], &why)) << why.toStdString();
            s_env->announce(devices[i]);
            ASSERT_TRUE(udisksSeesLabel(devices[i], labels[i])) << labels[i].toStdString();
        }
    }

    static inline UDisksEnvironment *s_env = nullptr;
    static inline QString s_why;
};

TEST_F(NTDiskHelperIntegration, NtfsVolumeIsMountedRenamedUnmountedAndEjected) {
    QString why;
    auto image = LoopImage::create(64, &why);
    ASSERT_TRUE(image) << why.toStdString();
    const QString device = image->device();
    const QString bsdName = LoopImage::kernelName(device);
    ASSERT_NO_FATAL_FAILURE(formatNtfs(*image, {device}, {u"VANTRELO"_s}));
    const auto mounted = [&] { return !mountPointOf(device).isEmpty(); };
    const auto unmounted = [&] { return mountPointOf(device).isEmpty(); };

    ASSERT_TRUE(after([&] { NTDiskHelper::mountDiskWithBSDName(bsdName); }, mounted));
    EXPECT_TRUE(mountPointOf(device).endsWith(u"/VANTRELO"_s))
        << mountPointOf(device).toStdString();
    ASSERT_TRUE(after([&] { NTDiskHelper::unmountDiskWithBSDName(bsdName); }, unmounted));
    ASSERT_TRUE(after([&] { NTDiskHelper::rename(bsdName, u"RENAMED"_s); },
                      [&] { return labelOf(device) == u"RENAMED"_s; }))
        << "label is " << labelOf(device).toStdString();
    ASSERT_TRUE(udisksSeesLabel(device, u"RENAMED"_s));
    ASSERT_TRUE(after([&] { NTDiskHelper::mountDiskWithBSDName(bsdName); }, mounted));
    const QString mountPath = mountPointOf(device);
    EXPECT_TRUE(mountPath.endsWith(u"/RENAMED"_s)) << mountPath.toStdString();

    // A disk image is ejected by detaching its loop device.
    auto drive = std::make_shared<NTDiskDrive>();
    drive->setMountPath(mountPath);
    drive->setBsdName(bsdName);
    ASSERT_TRUE(after([&] { NTDiskHelper::ejectDiskWithDrive(drive); }, unmounted));
    EXPECT_TRUE(waitUntil([&] { return !loopAttached(device); }));

    // The second eject of the same drive finds nothing and does no harm.
    after([&] { NTDiskHelper::ejectDiskWithDrive(drive); }, unmounted);
    UDisksClient udisks;
    EXPECT_FALSE(udisks.unmountAndEject(mountPath));
    EXPECT_FALSE(udisks.lastError().isEmpty());
}

TEST_F(NTDiskHelperIntegration, WholeDiskRequestsReachEveryPartition) {
    QString why;
    auto image = LoopImage::createPartitioned(96, 2, &why);
    ASSERT_TRUE(image) << why.toStdString();
    const QString first = image->partition(1), second = image->partition(2);
    ASSERT_NO_FATAL_FAILURE(formatNtfs(*image, {first, second}, {u"PARTONE"_s, u"PARTTWO"_s}));

    ASSERT_TRUE(
        after([&] { NTDiskHelper::mountDiskWithBSDName(LoopImage::kernelName(image->device())); },
              [&] { return !mountPointOf(first).isEmpty() && !mountPointOf(second).isEmpty(); }));
    // Naming one partition unmounts the whole disk.
    EXPECT_TRUE(
        after([&] { NTDiskHelper::unmountDiskWithBSDName(LoopImage::kernelName(first)); },
              [&] { return mountPointOf(first).isEmpty() && mountPointOf(second).isEmpty(); }));
}

TEST_F(NTDiskHelperIntegration, UnknownOrStaleTargetsChangeNothing) {
    QString why;
    auto image = LoopImage::create(64, &why);
    ASSERT_TRUE(image) << why.toStdString();
    const QString device = image->device();
    ASSERT_NO_FATAL_FAILURE(formatNtfs(*image, {device}, {u"STAYS"_s}));

    auto stale = std::make_shared<NTDiskDrive>();
    stale->setMountPath(u"/media/no-such-volume"_s);
    after(
        [&] {
            NTDiskHelper::ejectDiskWithDrive(stale);
            NTDiskHelper::ejectDiskWithDrive(std::make_shared<NTDiskDrive>());
            NTDiskHelper::ejectDiskWithDrive(nullptr);
            NTDiskHelper::mountDiskWithBSDName(u"nosuchdisk9"_s);
            NTDiskHelper::rename(u"nosuchdisk9"_s, u"X"_s);
            NTDiskHelper::unmountDiskWithBSDName(u"../../etc"_s);
        },
        [] { return true; });

    UDisksClient udisks;
    EXPECT_FALSE(udisks.mountWhole(u"nosuchdisk9"_s));
    EXPECT_FALSE(udisks.rename(u"nosuchdisk9"_s, u"X"_s));
    EXPECT_TRUE(loopAttached(device));
    EXPECT_EQ(labelOf(device), u"STAYS"_s);
    EXPECT_TRUE(mountPointOf(device).isEmpty());
}

} // namespace
