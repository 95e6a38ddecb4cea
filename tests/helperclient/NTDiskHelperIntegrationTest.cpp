#include "helperclient/NTDiskHelper.h"
#include "tests/support/LoopImage.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"
#include "tests/support/Udevd.h"
#include "tests/support/Wait.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThreadPool>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using testsupport::LoopImage;
using testsupport::runCommand;
using testsupport::waitUntil;

namespace {

// A private udisks2 stack: dbus-daemon with a system-bus configuration on a private address
// (DBUS_SYSTEM_BUS_ADDRESS), udevd when none runs, and udisksd. What it starts it stops by pid.
struct UDisksStack {
    // One stack at a time: each would trigger and watch the same devices.
    QLockFile lock{u"/tmp/vantrelo-udisks-environment.lock"_s};
    QTemporaryDir dir;
    testsupport::Udevd udevd;
    QProcess dbus, udisksd;

    ~UDisksStack() {
        for (QProcess *process : {&udisksd, &dbus}) {
            process->terminate();
            process->waitForFinished(10000); // QProcess kills it on destruction if still running
        }
    }

    // Empty once everything runs, else why not. Must come before the first system bus call.
    QString start() {
        QFile config(dir.filePath(u"bus.conf"_s));
        if (!lock.tryLock(240000) || !config.open(QIODevice::WriteOnly))
            return u"another test holds the udisks stack, or no bus configuration can be written"_s;
        config.write(
            "<busconfig><type>system</type><listen>unix:path=" + dir.filePath(u"bus"_s).toUtf8() +
            "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow user=\"*\"/>"
            "<allow own=\"*\"/><allow send_destination=\"*\" eavesdrop=\"true\"/>"
            "<allow eavesdrop=\"true\"/></policy></busconfig>");
        config.close();
        // The address is printed once the bus accepts connections; the socket file alone appears
        // at bind(), before listen(), and a client connecting then is refused.
        dbus.start(u"dbus-daemon"_s, {u"--config-file="_s + config.fileName(), u"--nofork"_s,
                                      u"--nopidfile"_s, u"--print-address"_s});
        while (!dbus.canReadLine() && dbus.waitForReadyRead(10000)) {
        }
        if (!dbus.canReadLine())
            return u"dbus-daemon printed no address"_s;
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", dbus.readLine().trimmed());

        if (const QString why = udevd.start(); !why.isEmpty())
            return why;
        runCommand(u"udevadm"_s, {u"trigger"_s, u"--subsystem-match=block"_s});
        runCommand(u"udevadm"_s, {u"settle"_s});
        udisksd.start(u"/usr/libexec/udisks2/udisksd"_s, {});
        QDBusConnectionInterface *bus = QDBusConnection::systemBus().interface();
        const auto up = [&] {
            return bus->isServiceRegistered(u"org.freedesktop.UDisks2"_s).value();
        };
        if (!bus || !waitUntil(up))
            return u"udisksd did not come up on the private bus"_s;
        return {};
    }
};

// Where the kernel has `device` mounted, "" when nowhere.
QString mountPointOf(const QString &device) {
    return runCommand(u"findmnt"_s, {u"-n"_s, u"-o"_s, u"TARGET"_s, u"--source"_s, device})
        .output.trimmed();
}

// Settling udev is not enough: udisksd picks up uevents on its own schedule.
bool udisksSeesLabel(const QString &device, const QString &label) {
    runCommand(u"udevadm"_s, {u"settle"_s});
    return waitUntil([&] {
        const QString info =
            runCommand(u"udisksctl"_s, {u"info"_s, u"-b"_s, device}).output.simplified();
        return info.contains(u"IdLabel: "_s + label + u' ') &&
               info.contains(u"UDisks2.Filesystem:"_s);
    });
}

// Runs a request, lets it finish in the background and udev catch up, then waits for `state`.
bool after(const std::function<void()> &request, const std::function<bool()> &state = {}) {
    request();
    QThreadPool::globalInstance()->waitForDone();
    runCommand(u"udevadm"_s, {u"settle"_s});
    return !state || waitUntil(state);
}

TEST(NTDiskHelperIntegration, NtfsDiskIsMountedRenamedUnmountedAndEjectedWhole) {
    if (!testsupport::isRoot())
        GTEST_SKIP() << "needs root to run udisksd and attach loop devices";
    UDisksStack stack;
    ASSERT_EQ(stack.start(), QString());
    QString why;
    const auto image = LoopImage::createPartitioned(96, 2, &why);
    ASSERT_TRUE(image) << why.toStdString();
    const QString first = image->partition(1), second = image->partition(2);
    const auto name = [](const QString &device) { return LoopImage::kernelName(device); };
    for (const auto &[device, label] : {std::pair{first, u"PARTONE"_s}, {second, u"PARTTWO"_s}}) {
        ASSERT_TRUE(image->format(device, u"ntfs"_s, label, &why)) << why.toStdString();
        ASSERT_EQ(testsupport::Udevd::refresh(device), QString());
        ASSERT_TRUE(udisksSeesLabel(device, label)) << label.toStdString();
    }
    const auto mounted = [&](int count) {
        return [&, count] {
            return int(!mountPointOf(first).isEmpty()) + !mountPointOf(second).isEmpty() == count;
        };
    };
    const QString loopBacking = u"/sys/block/%1/loop/backing_file"_s.arg(name(image->device()));

    // Unknown or stale targets change nothing.
    auto drive = std::make_shared<NTDiskDrive>();
    drive->setMountPath(u"/media/no-such-volume"_s);
    NTDiskHelper::ejectDiskWithDrive(drive);
    NTDiskHelper::ejectDiskWithDrive(nullptr);
    NTDiskHelper::rename(u"../../etc"_s, u"X"_s);
    EXPECT_TRUE(after([] { NTDiskHelper::mountDiskWithBSDName(u"nosuchdisk9"_s); }, mounted(0)));
    // Requests for the disk, or any partition of it, reach every partition.
    ASSERT_TRUE(
        after([&] { NTDiskHelper::mountDiskWithBSDName(name(image->device())); }, mounted(2)));
    ASSERT_TRUE(after([&] { NTDiskHelper::unmountDiskWithBSDName(name(second)); }, mounted(0)));
    after([&] { NTDiskHelper::rename(name(first), u"RENAMED"_s); });
    ASSERT_TRUE(udisksSeesLabel(first, u"RENAMED"_s));
    ASSERT_TRUE(after([&] { NTDiskHelper::mountDiskWithBSDName(name(first)); }, mounted(2)));
    drive->setMountPath(mountPointOf(first));
    EXPECT_TRUE(drive->mountPath().endsWith(u"/RENAMED"_s)) << drive->mountPath().toStdString();
    {
        // A file still open keeps the volume mounted and the device attached.
        QFile busy(drive->mountPath() + u"/open-file"_s);
        ASSERT_TRUE(busy.open(QIODevice::WriteOnly));
        after([&] { NTDiskHelper::ejectDiskWithDrive(drive); });
        EXPECT_EQ(mountPointOf(first), drive->mountPath());
        EXPECT_TRUE(QFileInfo::exists(loopBacking));
    }
    // A disk image is ejected by detaching its loop device.
    ASSERT_TRUE(after([&] { NTDiskHelper::ejectDiskWithDrive(drive); }, mounted(0)));
    EXPECT_TRUE(waitUntil([&] { return !QFileInfo::exists(loopBacking); }));
}

} // namespace
