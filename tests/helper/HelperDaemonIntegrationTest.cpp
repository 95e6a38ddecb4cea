#include "helper/DeviceFacts.h"
#include "helper/HelperCommands.h"
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

using namespace Qt::StringLiterals;
using testsupport::LoopImage;
using testsupport::runCommand;
using wire::WireClient;

namespace {

// The built daemon on a socket of its own, stopped with the test.
class DaemonTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testsupport::isRoot())
            GTEST_SKIP() << "the helper daemon mounts and formats devices: needs root";
        ::chmod(QFile::encodeName(socketDir.path()).constData(), 0755);
        socketPath = socketDir.filePath(u"helper.sock"_s);
        daemon.setProcessChannelMode(QProcess::ForwardedChannels);
        daemon.start(QStringLiteral(VANTRELO_HELPER_DAEMON), {u"--socket"_s, socketPath});
        ASSERT_TRUE(daemon.waitForStarted());
        // Started, not yet listening: a hang guard, not a timing.
        for (int attempt = 0; attempt < 400 && !WireClient::connectTo(socketPath); ++attempt)
            QThread::msleep(25);
        ASSERT_TRUE(WireClient::connectTo(socketPath)) << "the daemon never listened";
    }

    void TearDown() override {
        if (daemon.state() == QProcess::NotRunning)
            return;
        daemon.terminate();
        if (!daemon.waitForFinished(60000))
            daemon.kill();
        EXPECT_EQ(daemon.exitStatus(), QProcess::NormalExit);
        EXPECT_FALSE(QFileInfo::exists(socketPath)) << "socket left behind";
    }

    // Runs `arguments` as the client, nobody (no shell in between).
    static testsupport::CommandResult runAsClient(const QStringList &arguments) {
        const QStringList user{u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s};
        return runCommand(u"setpriv"_s, user + arguments, 300000);
    }

    QString sendAsClient(quint64 code, const QStringList &parameters) {
        const auto run = runAsClient(
            QStringList{QStringLiteral(VANTRELO_WIRE_CLIENT), socketPath, QString::number(code)} +
            parameters);
        EXPECT_TRUE(run.ok()) << run.output.toStdString();
        return run.output.section(u"result: "_s, 1).trimmed();
    }

    static QString bsdName(const QString &devicePath) {
        return u"bsdName="_s + LoopImage::kernelName(devicePath);
    }

    // An NTFS image holding before.txt, mounted read-only where the client can reach it.
    std::unique_ptr<LoopImage> readOnlyNtfs(const QString &label, QString *target) {
        QString why;
        auto image = LoopImage::create(64, &why);
        EXPECT_TRUE(image) << why.toStdString();
        if (!image || !image->format(image->device(), u"ntfs"_s, label, &why))
            return nullptr;
        EXPECT_TRUE(
            runCommand(u"ntfscp"_s, {image->device(), u"/etc/passwd"_s, u"before.txt"_s}).ok());
        *target = image->mount(image->device(), u"ntfs"_s, true, &why, label);
        EXPECT_FALSE(target->isEmpty()) << why.toStdString();
        ::chmod(QFile::encodeName(image->scratchDir()).constData(), 0755);
        ::chmod(QFile::encodeName(QFileInfo(*target).path()).constData(), 0755);
        return image;
    }

    static void expectOnlyMount(const QString &devicePath, const QString &target, bool readOnly) {
        const auto mounts = helper::DeviceFacts().mountsOfDevice(LoopImage::kernelName(devicePath));
        ASSERT_EQ(mounts.size(), 1);
        EXPECT_EQ(mounts[0].target, target);
        EXPECT_EQ(mounts[0].readOnly(), readOnly);
    }

    static QString blkidValue(const QString &devicePath, const QString &tag) {
        return runCommand(u"blkid"_s, {u"-p"_s, u"-o"_s, u"value"_s, u"-s"_s, tag, devicePath})
            .output.trimmed();
    }

    // As ntfsinfo shows them; bit 0 is the dirty flag.
    static QString volumeFlags(const QString &devicePath) {
        return runCommand(u"ntfsinfo"_s, {u"-f"_s, u"-m"_s, devicePath})
            .output.section(u"Volume Flags: "_s, 1)
            .left(6);
    }

    QTemporaryDir socketDir;
    QString socketPath;
    QProcess daemon;
};

TEST_F(DaemonTest, MountReadWriteAtTheSamePathOwnedByTheCaller) {
    QString target;
    auto image = readOnlyNtfs(u"My Disk"_s, &target);
    ASSERT_TRUE(image);
    EXPECT_EQ(sendAsClient(helper::kMountReadWrite, {u"name=My Disk"_s, bsdName(image->device())}),
              u""_s);
    expectOnlyMount(image->device(), target, false);

    const auto write = runAsClient({u"cp"_s, u"/etc/passwd"_s, target + u"/by-client.txt"_s});
    ASSERT_TRUE(write.ok()) << write.output.toStdString();
    EXPECT_EQ(QFileInfo(target + u"/by-client.txt"_s).ownerId(), 65534u);
    QFile before(target + u"/before.txt"_s), original(u"/etc/passwd"_s);
    ASSERT_TRUE(before.open(QIODevice::ReadOnly) && original.open(QIODevice::ReadOnly));
    EXPECT_EQ(before.readAll(), original.readAll());

    // Asking again changes nothing.
    EXPECT_EQ(sendAsClient(helper::kMountReadWrite, {bsdName(image->device())}), u""_s);
    expectOnlyMount(image->device(), target, false);
}

TEST_F(DaemonTest, RepairClearsTheDirtyFlag) {
    QString why;
    auto image = LoopImage::create(64, &why);
    ASSERT_TRUE(image && image->format(image->device(), u"ntfs"_s, u"Dirty"_s, &why))
        << why.toStdString();
    // ntfsresize marks the volume for a check, as a crash does; ntfs-3g alone never sets the flag.
    ASSERT_TRUE(
        runCommand(u"ntfsresize"_s, {u"-f"_s, u"-P"_s, u"-s"_s, u"48M"_s, image->device()}).ok());
    ASSERT_EQ(volumeFlags(image->device()), u"0x0001"_s);
    const QString target = image->mount(image->device(), u"ntfs"_s, true, &why);
    ASSERT_FALSE(target.isEmpty()) << why.toStdString();
    EXPECT_EQ(sendAsClient(helper::kRepair, {bsdName(image->device())}), u""_s);
    EXPECT_EQ(volumeFlags(image->device()), u"0x0000"_s);
    expectOnlyMount(image->device(), target, true);
}

TEST_F(DaemonTest, EraseLeavesAnEmptyVolumeWithTheOldLabel) {
    QString target;
    auto image = readOnlyNtfs(u"KeepMe"_s, &target);
    ASSERT_TRUE(image);
    ASSERT_TRUE(QFileInfo::exists(target + u"/before.txt"_s));
    EXPECT_EQ(sendAsClient(helper::kErase, {bsdName(image->device())}), u""_s);
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
    const QString refused =
        sendAsClient(helper::kRename, {bsdName(image->device()), u"newName=bad:name"_s});
    EXPECT_TRUE(refused.contains(u"cannot contain"_s)) << refused.toStdString();
    EXPECT_EQ(blkidValue(image->device(), u"LABEL"_s), u"OldName"_s);
    EXPECT_EQ(sendAsClient(helper::kRename, {bsdName(image->device()), u"newName=Über Disk"_s}),
              u""_s);
    EXPECT_EQ(blkidValue(image->device(), u"LABEL"_s), u"Über Disk"_s);
    expectOnlyMount(image->device(), target, true);
}

TEST_F(DaemonTest, EjectLeavesNoMountOfTheDisk) {
    QString why;
    auto image = LoopImage::createPartitioned(64, 2, &why);
    ASSERT_TRUE(image) << why.toStdString();
    for (int part = 1; part <= 2; ++part) {
        ASSERT_TRUE(image->format(image->partition(part), u"ntfs"_s, u"P%1"_s.arg(part), &why));
        ASSERT_FALSE(image->mount(image->partition(part), u"ntfs"_s, part == 1, &why).isEmpty())
            << why.toStdString();
    }
    const QString disk = LoopImage::kernelName(image->device());
    EXPECT_EQ(sendAsClient(helper::kEject, {bsdName(image->partition(1))}), u""_s);
    EXPECT_TRUE(helper::DeviceFacts().mountsOfDisk(disk).isEmpty());
    EXPECT_FALSE(QFileInfo::exists(u"/sys/class/block/"_s + disk + u"/loop/backing_file"_s));
}

TEST_F(DaemonTest, TheSystemDiskIsRefusedForEveryDestructiveCode) {
    const helper::DeviceFacts facts;
    QString rootDevice;
    for (const auto &mount : facts.mounts())
        rootDevice = mount.target == u"/"_s ? mount.device : rootDevice;
    if (rootDevice.isEmpty())
        GTEST_SKIP() << "/ is not on a block device here";
    for (const quint64 code : {helper::kMountReadWrite, helper::kEject, helper::kRepair,
                               helper::kErase, helper::kRename}) {
        for (const QString &device : {rootDevice, facts.parentDisk(rootDevice)}) {
            const QString text = sendAsClient(code, {u"bsdName="_s + device, u"newName=X"_s});
            EXPECT_TRUE(text.contains(u"running system"_s))
                << code << " " << device.toStdString() << ": " << text.toStdString();
        }
    }
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
        // One starts a repair and leaves without waiting for it; another leaves mid-frame.
        auto leaving = WireClient::connectTo(socketPath);
        ASSERT_TRUE(leaving->send({1, helper::kRepair, {{u"bsdName"_s, name}}}));
        auto partial = WireClient::connectTo(socketPath);
        ASSERT_TRUE(partial->sendRaw(wire::encodeRequest({1, helper::kVersion, {}}).left(5)));
    }
    // Not CBOR, an oversize length, a reply instead of a request.
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

} // namespace
