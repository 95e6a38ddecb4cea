#include "helper/DeviceFacts.h"
#include "helper/HelperCommands.h"
#include "helperclient/wire/WireClient.h"
#include "tests/helper/DaemonFixture.h"
#include "tests/support/LoopImage.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"
#include "tests/support/Wait.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using testsupport::LoopImage;
using testsupport::runCommand;

namespace {

const std::vector<quint64> kDestructive{helper::kMountReadWrite, helper::kEject, helper::kRepair,
                                        helper::kErase, helper::kRename};

// As ntfsinfo shows them; bit 0 is the dirty flag.
QString volumeFlags(const QString &devicePath) {
    return runCommand(u"ntfsinfo"_s, {u"-f"_s, u"-m"_s, devicePath})
        .output.section(u"Volume Flags: "_s, 1)
        .left(6);
}

// The real tools: each command leaves the volume mounted where it was.
TEST_F(DaemonTest, RepairRenameAndEraseWorkOnAMountedVolume) {
    grantClient();
    auto image = ntfsImage(u"Dirty"_s);
    ASSERT_TRUE(image);
    const QString device = image->device(), name = bsdName(device);
    ASSERT_TRUE(runCommand(u"ntfscp"_s, {device, u"/etc/passwd"_s, u"before.txt"_s}).ok());
    // ntfsresize marks the volume for a check, as a crash does; ntfs-3g alone never sets the flag.
    ASSERT_TRUE(runCommand(u"ntfsresize"_s, {u"-f"_s, u"-P"_s, u"-s"_s, u"48M"_s, device}).ok());
    ASSERT_EQ(volumeFlags(device), u"0x0001"_s);
    QString why;
    const QString target = image->mount(device, u"ntfs"_s, true, &why);
    ASSERT_FALSE(target.isEmpty()) << why.toStdString();

    EXPECT_EQ(sendAsClient(helper::kRepair, {name}), u""_s);
    EXPECT_EQ(volumeFlags(device), u"0x0000"_s);
    EXPECT_EQ(sendAsClient(helper::kRename, {name, u"newName=Über Disk"_s}), u""_s);
    EXPECT_EQ(diskState(device), u"Über Disk "_s + target + u" ro"_s);
    EXPECT_EQ(sendAsClient(helper::kErase, {name}), u""_s);
    EXPECT_EQ(diskState(device), u"Über Disk "_s + target + u" rw"_s);
    EXPECT_EQ(QDir(target).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden |
                                     QDir::System),
              QStringList());
}

TEST_F(DaemonTest, EjectLeavesNoMountOfTheDisk) {
    grantClient();
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

TEST_F(DaemonTest, TheClientIsRefusedEveryDestructiveCodeUntilPolkitGrantsIt) {
    // Another user's volume, root's volume, a disk with nothing mounted.
    std::vector<std::unique_ptr<LoopImage>> images;
    for (const QString &label : {u"Others"_s, u"Roots"_s, u"Unmounted"_s}) {
        images.push_back(ntfsImage(label));
        ASSERT_TRUE(images.back());
    }
    const QString othersFolder = images[0]->scratchDir() + u"/others"_s;
    ASSERT_TRUE(QDir().mkpath(othersFolder));
    ASSERT_TRUE(
        runCommand(u"ntfs-3g"_s, {u"-o"_s, u"ro,uid=1,gid=1"_s, images[0]->device(), othersFolder})
            .ok());
    QString why;
    ASSERT_FALSE(images[1]->mount(images[1]->device(), u"ntfs"_s, true, &why).isEmpty())
        << why.toStdString();

    for (const auto &image : images) {
        const QString before = diskState(image->device());
        std::vector<Request> requests;
        for (const quint64 code : kDestructive)
            requests.push_back({code, {bsdName(image->device()), u"newName=New"_s}});
        // At once, so the daemon's workers ask polkit side by side.
        for (const QString &answer : send(requests))
            EXPECT_TRUE(answer.startsWith(u"Not authorized: "_s) &&
                        answer.contains(u"administrator"_s))
                << before.toStdString() << ": " << answer.toStdString();
        EXPECT_EQ(diskState(image->device()), before);
    }

    grantClient();
    for (const auto &image : images) {
        EXPECT_EQ(sendAsClient(helper::kRename, {bsdName(image->device()), u"newName=Granted"_s}),
                  u""_s);
        EXPECT_TRUE(diskState(image->device()).startsWith(u"Granted"_s));
    }
}

TEST_F(DaemonTest, WithoutPolkitOnlyRootMayActUntilPolkitIsBack) {
    auto image = ntfsImage(u"Before"_s);
    ASSERT_TRUE(image);
    QString why;
    const QString name = bsdName(image->device());
    polkit.stop();
    const QString refused = sendAsClient(helper::kRename, {name, u"newName=ByClient"_s});
    EXPECT_TRUE(refused.startsWith(u"Not authorized: "_s) &&
                refused.contains(u"polkit is not running"_s))
        << refused.toStdString();
    EXPECT_EQ(diskState(image->device()), u"Before"_s);
    EXPECT_EQ(send({{helper::kRename, {name, u"newName=ByRoot"_s}}}, true), QStringList{u""_s});
    EXPECT_EQ(diskState(image->device()), u"ByRoot"_s);

    // The daemon finds a polkit that starts after it.
    ASSERT_TRUE(polkit.start(QStringLiteral(VANTRELO_POLKIT_POLICY), &why)) << why.toStdString();
    grantClient();
    EXPECT_EQ(sendAsClient(helper::kRename, {name, u"newName=ByClient"_s}), u""_s);
    EXPECT_EQ(diskState(image->device()), u"ByClient"_s);
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
    std::unique_ptr<wire::WireClient> client;
    ASSERT_TRUE(testsupport::waitUntil(
        [&] { return bool(client = wire::WireClient::connectTo(socketPath)); }));
    EXPECT_EQ(client->result(helper::kVersion), QStringLiteral(VANTRELO_VERSION));
    activator.terminate();
    EXPECT_TRUE(activator.waitForFinished(30000));
}

} // namespace
