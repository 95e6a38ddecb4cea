#include "helper/DeviceFacts.h"
#include "helper/HelperCommands.h"
#include "helperclient/wire/WireClient.h"
#include "tests/helper/DaemonFixture.h"
#include "tests/support/LoopImage.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"
#include "tests/support/Wait.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using testsupport::LoopImage;
using testsupport::runCommand;
using wire::WireClient;

namespace {

TEST_F(GrantedDaemonTest, MountReadWriteAtTheSamePathOwnedByTheCaller) {
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

TEST_F(GrantedDaemonTest, RepairClearsTheDirtyFlag) {
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

TEST_F(GrantedDaemonTest, EraseLeavesAnEmptyVolumeWithTheOldLabel) {
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

TEST_F(GrantedDaemonTest, RenameChangesTheLabelOrSaysWhyNot) {
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

TEST_F(GrantedDaemonTest, EjectLeavesNoMountOfTheDisk) {
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
    // Skipped only where the kernel too says / is on no block device (overlay, tmpfs).
    const QString rootNumber =
        runCommand(u"findmnt"_s, {u"-n"_s, u"-f"_s, u"-o"_s, u"MAJ:MIN"_s, u"/"_s})
            .output.trimmed();
    if (rootNumber.isEmpty() || !QFileInfo::exists(u"/sys/dev/block/"_s + rootNumber))
        GTEST_SKIP() << "/ is not on a block device here";
    ASSERT_FALSE(rootDevice.isEmpty()) << "/ is on block device " << rootNumber.toStdString();
    for (const quint64 code : {helper::kMountReadWrite, helper::kEject, helper::kRepair,
                               helper::kErase, helper::kRename}) {
        for (const QString &device : {rootDevice, facts.parentDisk(rootDevice)}) {
            const QString text = sendAsClient(code, {u"bsdName="_s + device, u"newName=X"_s});
            EXPECT_TRUE(text.contains(u"running system"_s))
                << code << " " << device.toStdString() << ": " << text.toStdString();
        }
    }
}

TEST_F(DaemonTest, TheClientIsRefusedEveryDestructiveCodeUntilPolkitGrantsIt) {
    // Another user's volume, root's volume, a disk with nothing mounted.
    const QStringList labels{u"Others"_s, u"Roots"_s, u"Unmounted"_s};
    std::vector<std::unique_ptr<LoopImage>> images;
    for (const QString &label : labels) {
        QString why;
        images.push_back(LoopImage::create(64, &why));
        ASSERT_TRUE(images.back() &&
                    images.back()->format(images.back()->device(), u"ntfs"_s, label, &why))
            << why.toStdString();
    }
    const QString othersFolder = images[0]->scratchDir() + u"/others"_s;
    ASSERT_TRUE(QDir().mkpath(othersFolder));
    ASSERT_TRUE(
        runCommand(u"ntfs-3g"_s, {u"-o"_s, u"ro,uid=1,gid=1"_s, images[0]->device(), othersFolder})
            .ok());
    QString why;
    ASSERT_FALSE(images[1]->mount(images[1]->device(), u"ntfs"_s, true, &why).isEmpty())
        << why.toStdString();

    const std::vector<std::pair<quint64, QStringList>> requests{
        {helper::kMountReadWrite, {}},
        {helper::kEject, {}},
        {helper::kRepair, {}},
        {helper::kErase, {}},
        {helper::kRename, {u"newName=New"_s}}};
    for (const auto &image : images) {
        const QString before = diskState(image->device());
        std::vector<std::pair<quint64, QStringList>> toThisDisk = requests;
        for (auto &request : toThisDisk)
            request.second << bsdName(image->device());
        // At once, so the daemon's workers ask polkit side by side.
        const QStringList answers = sendAtOnceAsClient(toThisDisk);
        for (size_t i = 0; i < requests.size(); ++i)
            EXPECT_TRUE(answers.value(qsizetype(i)).startsWith(u"Not authorized: "_s) &&
                        answers.value(qsizetype(i)).contains(u"administrator"_s))
                << before.toStdString() << ", code " << requests[i].first << ": "
                << answers.value(qsizetype(i)).toStdString();
        EXPECT_EQ(diskState(image->device()), before);
    }

    grantClient();
    for (const auto &image : images) {
        EXPECT_EQ(sendAsClient(helper::kRename, {bsdName(image->device()), u"newName=Granted"_s}),
                  u""_s);
        EXPECT_EQ(blkidValue(image->device(), u"LABEL"_s), u"Granted"_s);
    }
}

TEST_F(DaemonTest, WithoutPolkitOnlyRootMayActUntilPolkitIsBack) {
    QString why;
    auto image = LoopImage::create(64, &why);
    ASSERT_TRUE(image && image->format(image->device(), u"ntfs"_s, u"Before"_s, &why))
        << why.toStdString();
    polkit.stop();
    const QString refused =
        sendAsClient(helper::kRename, {bsdName(image->device()), u"newName=ByClient"_s});
    EXPECT_TRUE(refused.startsWith(u"Not authorized: "_s) &&
                refused.contains(u"polkit is not running"_s))
        << refused.toStdString();
    EXPECT_EQ(blkidValue(image->device(), u"LABEL"_s), u"Before"_s);
    EXPECT_EQ(sendAsRoot(helper::kRename, {bsdName(image->device()), u"newName=ByRoot"_s}), u""_s);
    EXPECT_EQ(blkidValue(image->device(), u"LABEL"_s), u"ByRoot"_s);

    // The daemon finds a polkit that starts after it.
    ASSERT_TRUE(polkit.start(QStringLiteral(VANTRELO_POLKIT_POLICY), &why)) << why.toStdString();
    grantClient();
    EXPECT_EQ(sendAsClient(helper::kRename, {bsdName(image->device()), u"newName=ByClient"_s}),
              u""_s);
    EXPECT_EQ(blkidValue(image->device(), u"LABEL"_s), u"ByClient"_s);
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
    ASSERT_TRUE(testsupport::haveProgram(u"systemd-socket-activate"_s))
        << "systemd-socket-activate is not installed (scripts/install-deps.sh)";
    QTemporaryDir dir;
    const QString socketPath = dir.filePath(u"activated.sock"_s);
    QProcess activator;
    activator.start(u"systemd-socket-activate"_s,
                    {u"-l"_s, socketPath, QStringLiteral(VANTRELO_HELPER_DAEMON)});
    ASSERT_TRUE(activator.waitForStarted());
    std::unique_ptr<WireClient> client;
    ASSERT_TRUE(
        testsupport::waitUntil([&] { return bool(client = WireClient::connectTo(socketPath)); }));
    EXPECT_EQ(client->result(helper::kVersion), QStringLiteral(VANTRELO_VERSION));
    activator.terminate();
    EXPECT_TRUE(activator.waitForFinished(30000));
}

} // namespace
