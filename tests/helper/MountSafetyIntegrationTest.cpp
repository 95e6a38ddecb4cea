#include "helper/DeviceFacts.h"
#include "helper/HelperCommands.h"
#include "helper/UniqueFd.h"
#include "tests/support/LoopImage.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <functional>

using namespace Qt::StringLiterals;
using testsupport::LoopImage;
using testsupport::runCommand;

namespace {

// The real tools, with a hook that runs right after each unmount: where a hostile user would
// act, deterministically.
class RacingRunner : public helper::ProcessToolRunner {
public:
    std::function<void(const QString &target)> afterUnmount;

    helper::ToolResult unmount(const QString &target) override {
        const helper::ToolResult result = ProcessToolRunner::unmount(target);
        if (result.ok() && afterUnmount)
            afterUnmount(target);
        return result;
    }
};

class AllowAll : public helper::Authorizer {
public:
    helper::Authorization check(const helper::Caller &, const QString &,
                                const QString &) const override {
        return {true, {}};
    }
};

// An NTFS loop volume mounted read-only by root at a folder everyone can reach, and the helper's
// commands in this process around the real tools, asked by nobody.
class MountSafetyTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testsupport::isRoot())
            GTEST_SKIP() << "needs root to attach loop devices and mount them";
        QString why;
        image = LoopImage::create(64, &why);
        ASSERT_TRUE(image && image->format(image->device(), u"ntfs"_s, u"Safety"_s, &why))
            << why.toStdString();
        target = image->mount(image->device(), u"ntfs"_s, true, &why);
        ASSERT_FALSE(target.isEmpty()) << why.toStdString();
        for (QString at = QFileInfo(target).path(); at.startsWith(image->scratchDir());
             at = QFileInfo(at).path())
            ::chmod(QFile::encodeName(at).constData(), 0755);
        device = LoopImage::kernelName(image->device());
    }

    QString send(quint64 code) {
        return commands
            .handle({1, code, {{u"bsdName"_s, device}, {u"newName"_s, u"New"_s}}},
                    {1, 0, 65534, 65534, {65534}, false})
            .value(u"result"_s, u"<missing>"_s);
    }
    QList<helper::MountEntry> mountsAt(const QString &path) const {
        QList<helper::MountEntry> found = facts.mounts();
        found.removeIf([&](const helper::MountEntry &mount) { return mount.target != path; });
        return found;
    }

    std::unique_ptr<LoopImage> image;
    QString target;
    QString device;
    RacingRunner runner;
    helper::DeviceFacts facts;
    helper::BlkidVolumeProbe probe;
    AllowAll authorizer;
    helper::HelperCommands commands{runner, facts, probe, authorizer};
};

// The mount folder swapped for a link to another folder between unmount and mount: the volume
// goes nowhere, and the answer says so.
TEST_F(MountSafetyTest, AMountPointSwappedForALinkNeverReceivesTheVolume) {
    const QString decoy = image->scratchDir() + u"/decoy"_s;
    ASSERT_TRUE(QDir().mkpath(decoy));
    for (const quint64 code : {helper::kMountReadWrite, helper::kRename}) {
        SCOPED_TRACE(code);
        runner.afterUnmount = [&](const QString &unmounted) {
            ASSERT_TRUE(QDir().rename(unmounted, unmounted + u".away"_s));
            ASSERT_TRUE(QFile::link(decoy, unmounted));
        };
        const QString text = send(code);
        EXPECT_TRUE(text.contains(u"stays unmounted"_s)) << text.toStdString();
        EXPECT_TRUE(mountsAt(decoy).isEmpty());
        EXPECT_TRUE(facts.mountsOfDevice(device).isEmpty());
        // Back as it was for the next command.
        runner.afterUnmount = {};
        ASSERT_TRUE(QFile::remove(target) && QDir().rename(target + u".away"_s, target));
        ASSERT_TRUE(runCommand(u"ntfs-3g"_s, {u"-o"_s, u"ro"_s, image->device(), target}).ok());
    }
}

// A FUSE mount whose source names the loop device, as fusermount makes for any user who asks
// for that fsname: its number is anonymous, so it is not the device's, and the device's commands
// leave it alone. No daemon serves it; only the mount table matters here.
TEST_F(MountSafetyTest, ASpoofedFuseMountIsNotTakenForTheDevice) {
    ASSERT_TRUE(image->unmount(target));
    const QString spoofed = image->scratchDir() + u"/spoofed"_s;
    ASSERT_TRUE(QDir().mkpath(spoofed));
    {
        const helper::UniqueFd fuse(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
        ASSERT_TRUE(fuse.valid());
        const QByteArray data =
            "fd=" + QByteArray::number(fuse.get()) + ",rootmode=40000,user_id=65534,group_id=65534";
        ASSERT_EQ(::mount(QFile::encodeName(image->device()).constData(),
                          QFile::encodeName(spoofed).constData(), "fuse",
                          MS_NOSUID | MS_NODEV | MS_RDONLY, data.constData()),
                  0);
    }
    const QList<helper::MountEntry> before = mountsAt(spoofed);
    ASSERT_EQ(before.size(), 1);
    EXPECT_EQ(before[0].source, image->device());
    EXPECT_TRUE(facts.mountsOfDevice(device).isEmpty());

    EXPECT_TRUE(send(helper::kMountReadWrite).contains(u"not mounted"_s));
    send(helper::kEject);
    const QList<helper::MountEntry> after = mountsAt(spoofed);
    ASSERT_EQ(after.size(), 1);
    EXPECT_EQ(after[0].mountId, before[0].mountId);
    EXPECT_EQ(::umount2(QFile::encodeName(spoofed).constData(), MNT_DETACH), 0);
}

// Made writable for nobody, the volume carries nosuid and nodev and holds nobody's files, which
// others cannot write.
TEST_F(MountSafetyTest, AReadWriteMountIsTheCallersAndKeepsOthersOut) {
    ASSERT_EQ(send(helper::kMountReadWrite), u""_s);
    const QList<helper::MountEntry> mounts = facts.mountsOfDevice(device);
    ASSERT_EQ(mounts.size(), 1);
    EXPECT_EQ(mounts[0].target, target);
    const QStringList flags = mounts[0].options.split(u',');
    EXPECT_TRUE(flags.contains(u"rw"_s) && flags.contains(u"nosuid"_s) &&
                flags.contains(u"nodev"_s))
        << mounts[0].options.toStdString();
    const QString file = target + u"/written"_s, folder = target + u"/made"_s;
    ASSERT_TRUE(runCommand(u"setpriv"_s,
                           {u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s, u"sh"_s,
                            u"-c"_s, u"touch -- \"$0\" && mkdir -- \"$1\""_s, file, folder})
                    .ok());
    for (const QString &path : {file, folder}) {
        struct stat info {};
        ASSERT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0);
        EXPECT_EQ(info.st_uid, 65534u) << path.toStdString();
        EXPECT_EQ(info.st_mode & 022, 0u) << path.toStdString();
    }
}

} // namespace
