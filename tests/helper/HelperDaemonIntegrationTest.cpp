#include "helper/DeviceFacts.h"
#include "helper/HelperCommands.h"
#include "tests/helper/NtfsFlags.h"
#include "helperclient/wire/WireClient.h"
#include "tests/support/LoopImage.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

using namespace Qt::StringLiterals;
using wire::WireClient;
using testsupport::LoopImage;
using testsupport::runCommand;

namespace {

constexpr uid_t kClientUid = 65534; // nobody: neither root nor an administrator

// The built daemon on a socket of its own, stopped with the test.
class DaemonTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testsupport::isRoot())
            GTEST_SKIP() << "the helper daemon mounts and formats devices: needs root";
        ASSERT_TRUE(socketDir.isValid());
        ::chmod(QFile::encodeName(socketDir.path()).constData(), 0755);
        socketPath = socketDir.filePath(u"helper.sock"_s);
        daemon.setProgram(QStringLiteral(VANTRELO_HELPER_DAEMON));
        daemon.setArguments({u"--socket"_s, socketPath});
        daemon.setProcessChannelMode(QProcess::ForwardedChannels);
        daemon.start();
        ASSERT_TRUE(daemon.waitForStarted());
        // Started, not yet listening: wait for the socket to answer (a hang guard, not a timing).
        for (int attempt = 0; attempt < 400 && !WireClient::connectTo(socketPath); ++attempt)
            QThread::msleep(25);
        ASSERT_TRUE(WireClient::connectTo(socketPath)) << "the daemon never listened";
    }

    void TearDown() override {
        if (daemon.state() != QProcess::NotRunning) {
            daemon.terminate();
            if (!daemon.waitForFinished(60000))
                daemon.kill();
            EXPECT_EQ(daemon.exitStatus(), QProcess::NormalExit);
            EXPECT_FALSE(QFileInfo::exists(socketPath)) << "socket left behind";
        }
    }

    // Sends one command from a process running as `uid` (no shell in between).
    QString sendAs(uid_t uid, quint64 code, const QStringList &parameters) {
        QStringList arguments{u"--reuid=%1"_s.arg(uid),
                              u"--regid=%1"_s.arg(uid),
                              u"--clear-groups"_s,
                              QStringLiteral(VANTRELO_WIRE_CLIENT),
                              socketPath,
                              QString::number(code)};
        const auto run = runCommand(u"setpriv"_s, arguments + parameters, 300000);
        EXPECT_TRUE(run.ok()) << run.output.toStdString();
        const QString line = run.output.trimmed();
        return line.startsWith(u"result: "_s) ? line.mid(8)
                                              : (line == u"result:"_s ? QString() : line);
    }

    QString sendAsRoot(quint64 code, const wire::Dictionary &parameter) {
        auto client = WireClient::connectTo(socketPath);
        return client ? client->result(code, parameter) : u"<no connection>"_s;
    }

    // An NTFS image with files, mounted read-only through ntfs-3g where a non-root user can
    // reach it.
    std::unique_ptr<LoopImage> readOnlyNtfs(const QString &label, QString *target,
                                            const QMap<QString, QByteArray> &files = {}) {
        QString why;
        auto image = LoopImage::create(64, &why);
        EXPECT_TRUE(image) << why.toStdString();
        if (!image)
            return nullptr;
        EXPECT_TRUE(image->format(image->device(), u"ntfs"_s, label, &why)) << why.toStdString();
        if (!files.isEmpty()) {
            const QString writable = image->mount(image->device(), u"ntfs"_s, false, &why);
            EXPECT_FALSE(writable.isEmpty()) << why.toStdString();
            for (auto it = files.cbegin(); it != files.cend(); ++it) {
                QFile file(writable + u'/' + it.key());
                EXPECT_TRUE(file.open(QIODevice::WriteOnly));
                file.write(it.value());
            }
            EXPECT_TRUE(image->unmount(writable));
        }
        *target = image->mount(image->device(), u"ntfs"_s, true, &why, label);
        EXPECT_FALSE(target->isEmpty()) << why.toStdString();
        ::chmod(QFile::encodeName(image->scratchDir()).constData(), 0755);
        ::chmod(QFile::encodeName(QFileInfo(*target).path()).constData(), 0755);
        return image;
    }

    // The volume is mounted once, at `target`, read-only or not.
    static void expectOnlyMount(const QString &devicePath, const QString &target, bool readOnly) {
        const auto mounts = helper::DeviceFacts().mountsOfDevice(LoopImage::kernelName(devicePath));
        ASSERT_EQ(mounts.size(), 1);
        EXPECT_EQ(mounts[0].target, target);
        EXPECT_EQ(mounts[0].readOnly(), readOnly);
    }

    static QString blkidValue(const QString &devicePath, const QString &tag) {
        const auto run = runCommand(
            u"blkid"_s, {u"-p"_s, u"-o"_s, u"value"_s, u"-s"_s, tag, u"--"_s, devicePath});
        return run.output.endsWith(u'\n') ? run.output.chopped(1) : run.output;
    }

    // The volume flags as ntfsinfo reads them (bit 0: dirty); -1 when it cannot tell.
    static int volumeFlags(const QString &devicePath) {
        const auto run = runCommand(u"ntfsinfo"_s, {u"-f"_s, u"-m"_s, devicePath});
        bool ok = false;
        const int flags = run.output.section(u"Volume Flags: "_s, 1)
                              .section(u'\n', 0, 0)
                              .section(u' ', 0, 0)
                              .toInt(&ok, 0);
        EXPECT_TRUE(ok) << run.output.toStdString();
        return ok ? flags : -1;
    }

    QTemporaryDir socketDir;
    QString socketPath;
    QProcess daemon;
};

TEST_F(DaemonTest, MountReadWriteAtTheSamePathOwnedByTheCaller) {
    QString target;
    auto image = readOnlyNtfs(u"Vantrelo"_s, &target, {{u"before.txt"_s, "written before"}});
    ASSERT_TRUE(image);
    const QString name = LoopImage::kernelName(image->device());

    EXPECT_EQ(
        sendAs(kClientUid, helper::kMountReadWrite, {u"name=Vantrelo"_s, u"bsdName="_s + name}),
        u""_s);
    expectOnlyMount(image->device(), target, false);

    const auto write =
        runCommand(u"setpriv"_s, {u"--reuid=%1"_s.arg(kClientUid), u"--regid=%1"_s.arg(kClientUid),
                                  u"--clear-groups"_s, u"cp"_s, u"/etc/hostname"_s,
                                  target + u"/by-client.txt"_s});
    ASSERT_TRUE(write.ok()) << write.output.toStdString();
    struct stat info {};
    ASSERT_EQ(::stat(QFile::encodeName(target + u"/by-client.txt"_s).constData(), &info), 0);
    EXPECT_EQ(info.st_uid, kClientUid);
    QFile before(target + u"/before.txt"_s);
    ASSERT_TRUE(before.open(QIODevice::ReadOnly));
    EXPECT_EQ(before.readAll(), "written before");

    // Asking again changes nothing.
    EXPECT_EQ(sendAs(kClientUid, helper::kMountReadWrite, {u"bsdName="_s + name}), u""_s);
    expectOnlyMount(image->device(), target, false);
}

TEST_F(DaemonTest, HibernatedVolumeStaysReadOnlyAndSaysWhy) {
    QByteArray hibernation(4096, '\0');
    hibernation.replace(0, 4, "HIBR");
    QString target;
    auto image = readOnlyNtfs(u"Windows"_s, &target, {{u"hiberfil.sys"_s, hibernation}});
    ASSERT_TRUE(image);
    const QString text = sendAs(kClientUid, helper::kMountReadWrite,
                                {u"bsdName="_s + LoopImage::kernelName(image->device())});
    EXPECT_TRUE(text.contains(u"Fast Startup"_s)) << text.toStdString();
    expectOnlyMount(image->device(), target, true);
}

TEST_F(DaemonTest, RepairClearsTheUncleanFlag) {
    QString why;
    auto image = LoopImage::create(64, &why);
    ASSERT_TRUE(image) << why.toStdString();
    ASSERT_TRUE(image->format(image->device(), u"ntfs"_s, u"Crashed"_s, &why));
    // A read/write mount whose driver dies mid-use.
    const QString crashed = image->mount(image->device(), u"ntfs"_s, false, &why);
    ASSERT_FALSE(crashed.isEmpty()) << why.toStdString();
    QFile file(crashed + u"/unsaved.txt"_s);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("data");
    file.close();
    const auto driver =
        runCommand(u"pgrep"_s, {u"-f"_s, u"ntfs-3g -o rw "_s + image->device() + u' ' + crashed});
    const pid_t pid = driver.output.section(u'\n', 0, 0).toInt();
    ASSERT_GT(pid, 0) << driver.output.toStdString();
    ASSERT_EQ(::kill(pid, SIGKILL), 0);
    ASSERT_TRUE(runCommand(u"umount"_s, {u"-l"_s, u"--"_s, crashed}).ok());
    // ntfs-3g never sets the dirty bit; Windows and a crash of its driver do.
    ASSERT_TRUE(helpertest::markNtfsDirty(image->device()));
    const int marked = volumeFlags(image->device());
    ASSERT_GE(marked, 0);
    ASSERT_EQ(marked & 1, 1);
    const QString target = image->mount(image->device(), u"ntfs"_s, true, &why, u"Crashed"_s);
    ASSERT_FALSE(target.isEmpty()) << why.toStdString();

    EXPECT_EQ(sendAsRoot(helper::kRepair, {{u"bsdName"_s, LoopImage::kernelName(image->device())}}),
              u""_s);
    const int flags = volumeFlags(image->device());
    ASSERT_GE(flags, 0);
    EXPECT_EQ(flags & 1, 0);
    expectOnlyMount(image->device(), target, true);
}

TEST_F(DaemonTest, EraseLeavesAnEmptyVolumeWithTheOldLabel) {
    QString target;
    auto image = readOnlyNtfs(u"KeepMe"_s, &target, {{u"old.txt"_s, "old"}, {u"b.bin"_s, "b"}});
    ASSERT_TRUE(image);
    ASSERT_TRUE(QFileInfo::exists(target + u"/old.txt"_s));
    EXPECT_EQ(sendAs(kClientUid, helper::kErase,
                     {u"bsdName="_s + LoopImage::kernelName(image->device())}),
              u""_s);
    EXPECT_EQ(blkidValue(image->device(), u"TYPE"_s), u"ntfs"_s);
    EXPECT_EQ(blkidValue(image->device(), u"LABEL"_s), u"KeepMe"_s);
    expectOnlyMount(image->device(), target, false);
    EXPECT_EQ(QDir(target).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden |
                                     QDir::System),
              QStringList());
}

TEST_F(DaemonTest, RenameChangesTheLabelOrSaysWhyNot) {
    QString target;
    auto image = readOnlyNtfs(u"OldName"_s, &target);
    ASSERT_TRUE(image);
    const QString name = LoopImage::kernelName(image->device());
    const QString refused =
        sendAs(kClientUid, helper::kRename, {u"bsdName="_s + name, u"newName=bad:name"_s});
    EXPECT_TRUE(refused.contains(u"cannot contain"_s)) << refused.toStdString();
    EXPECT_EQ(blkidValue(image->device(), u"LABEL"_s), u"OldName"_s);

    EXPECT_EQ(sendAs(kClientUid, helper::kRename, {u"bsdName="_s + name, u"newName=Über Disk"_s}),
              u""_s);
    EXPECT_EQ(blkidValue(image->device(), u"LABEL"_s), u"Über Disk"_s);
    expectOnlyMount(image->device(), target, true);
}

TEST_F(DaemonTest, EjectLeavesNoMountOfTheDisk) {
    QString why;
    auto image = LoopImage::createPartitioned(64, 2, &why);
    ASSERT_TRUE(image) << why.toStdString();
    QStringList targets;
    for (int part = 1; part <= 2; ++part) {
        ASSERT_TRUE(image->format(image->partition(part), u"ntfs"_s, u"P%1"_s.arg(part), &why));
        targets << image->mount(image->partition(part), u"ntfs"_s, part == 1, &why);
        ASSERT_FALSE(targets.last().isEmpty()) << why.toStdString();
    }
    const QString disk = LoopImage::kernelName(image->device());
    EXPECT_EQ(sendAs(kClientUid, helper::kEject,
                     {u"name=P1"_s, u"bsdName="_s + LoopImage::kernelName(image->partition(1))}),
              u""_s);
    EXPECT_TRUE(helper::DeviceFacts().mountsOfDisk(disk).isEmpty());
    // The image is detached too.
    EXPECT_FALSE(QFileInfo::exists(u"/sys/class/block/"_s + disk + u"/loop/backing_file"_s));
}

TEST_F(DaemonTest, TheSystemDiskIsRefusedForEveryDestructiveCode) {
    const helper::DeviceFacts facts;
    QString rootDevice;
    for (const auto &mount : facts.mounts()) {
        if (mount.target == u"/"_s)
            rootDevice = mount.device;
    }
    if (rootDevice.isEmpty())
        GTEST_SKIP() << "/ is not on a block device here";
    for (const quint64 code : {helper::kMountReadWrite, helper::kEject, helper::kRepair,
                               helper::kErase, helper::kRename}) {
        for (const QString &device : {rootDevice, facts.parentDisk(rootDevice)}) {
            const QString text = sendAsRoot(code, {{u"bsdName"_s, device}, {u"newName"_s, u"X"_s}});
            EXPECT_TRUE(text.contains(u"running system"_s))
                << code << " " << device.toStdString() << ": " << text.toStdString();
        }
    }
    bool rootStillThere = false;
    for (const auto &mount : facts.mounts())
        rootStillThere = rootStillThere || (mount.target == u"/"_s && mount.device == rootDevice);
    EXPECT_TRUE(rootStillThere);
}

TEST_F(DaemonTest, FiftyClientsAtOnceAllGetTheirVersion) {
    std::vector<std::unique_ptr<WireClient>> clients;
    for (int i = 0; i < 50; ++i) {
        clients.push_back(WireClient::connectTo(socketPath));
        ASSERT_TRUE(clients.back());
        ASSERT_TRUE(clients.back()->send({quint64(1000 + i), helper::kVersion, {}}));
    }
    for (int i = 0; i < 50; ++i) {
        const auto reply = clients[size_t(i)]->receive();
        ASSERT_TRUE(reply) << "client " << i;
        EXPECT_EQ(reply->id, quint64(1000 + i));
        EXPECT_EQ(reply->reply.value(u"result"_s), QStringLiteral(VANTRELO_VERSION));
    }
}

TEST_F(DaemonTest, GarbageAndAbandonedCommandsDoNotDisturbOthers) {
    QString target;
    auto image = readOnlyNtfs(u"Busy"_s, &target);
    ASSERT_TRUE(image);
    const QString name = LoopImage::kernelName(image->device());
    auto steady = WireClient::connectTo(socketPath);
    ASSERT_TRUE(steady);
    {
        // Starts a repair and leaves without waiting for it; another leaves mid-frame.
        auto leaving = WireClient::connectTo(socketPath);
        ASSERT_TRUE(leaving->send({1, helper::kRepair, {{u"bsdName"_s, name}}}));
        auto partial = WireClient::connectTo(socketPath);
        ASSERT_TRUE(partial->sendRaw(wire::encodeRequest({1, helper::kVersion, {}}).left(5)));
    }
    for (const QByteArray &garbage :
         {QByteArray::fromHex("0000000568656c6c6f"), QByteArray::fromHex("ffffffff00"),
          wire::encodeReply({1, {{u"result"_s, u""_s}}})}) {
        auto bad = WireClient::connectTo(socketPath);
        ASSERT_TRUE(bad->sendRaw(garbage));
        EXPECT_TRUE(bad->closedByServer());
        EXPECT_EQ(steady->result(helper::kVersion), QStringLiteral(VANTRELO_VERSION));
    }
    // Queued behind the abandoned repair on the same disk, so it sees its end result.
    EXPECT_EQ(steady->result(helper::kMountReadWrite, {{u"bsdName"_s, name}}), u""_s);
    expectOnlyMount(image->device(), target, false);
}

// Started the way systemd starts it: the listening socket arrives as descriptor 3.
TEST(DaemonActivation, ServesTheSocketSystemdPasses) {
    if (!testsupport::haveProgram(u"systemd-socket-activate"_s))
        GTEST_SKIP() << "systemd-socket-activate is not installed";
    QTemporaryDir dir;
    const QString socketPath = dir.filePath(u"activated.sock"_s);
    QProcess activator;
    activator.setProcessChannelMode(QProcess::ForwardedChannels);
    activator.start(u"systemd-socket-activate"_s,
                    {u"-l"_s, socketPath, QStringLiteral(VANTRELO_HELPER_DAEMON)});
    ASSERT_TRUE(activator.waitForStarted());
    std::unique_ptr<WireClient> client;
    for (int attempt = 0; attempt < 400 && !(client = WireClient::connectTo(socketPath)); ++attempt)
        QThread::msleep(25);
    ASSERT_TRUE(client);
    EXPECT_EQ(client->result(helper::kVersion), QStringLiteral(VANTRELO_VERSION));
    activator.terminate();
    EXPECT_TRUE(activator.waitForFinished(30000));
}

// Without a socket of either kind there is nothing to serve: it says so and stops.
TEST(DaemonActivation, RefusesToRunWithoutASocket) {
    QProcess daemon;
    daemon.start(QStringLiteral(VANTRELO_HELPER_DAEMON), {});
    ASSERT_TRUE(daemon.waitForFinished(30000));
    EXPECT_NE(daemon.exitCode(), 0);
    EXPECT_TRUE(daemon.readAllStandardError().contains("--socket"));
}

} // namespace
