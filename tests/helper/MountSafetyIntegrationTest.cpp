#include "helper/DeviceFacts.h"
#include "helper/HelperCommands.h"
#include "tests/support/LoopImage.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <functional>

using namespace Qt::StringLiterals;

namespace {

// A read-only NTFS loop volume, and the helper's commands around the real tools (with a hook right
// after each unmount, where a hostile user would act) making it writable for nobody. Polkit allows.
class MountSafetyTest : public ::testing::Test,
                        public helper::ProcessToolRunner,
                        public helper::Authorizer {
protected:
    void SetUp() override {
        if (!testsupport::isRoot())
            GTEST_SKIP() << "needs root to attach loop devices and mount them";
        QString why;
        image = testsupport::LoopImage::create(64, &why);
        ASSERT_TRUE(image && image->format(image->device(), u"ntfs"_s, u"Safety"_s, &why))
            << why.toStdString();
        target = image->mount(image->device(), u"ntfs"_s, true, &why);
        ASSERT_FALSE(target.isEmpty()) << why.toStdString();
        device = testsupport::LoopImage::kernelName(image->device());
    }
    helper::ToolResult unmount(const QString &folder) override {
        const helper::ToolResult result = ProcessToolRunner::unmount(folder);
        if (result.ok() && afterUnmount)
            afterUnmount(folder);
        return result;
    }
    helper::Authorization check(const helper::Caller &, const QString &,
                                const QString &) const override {
        return {true, {}};
    }
    QString makeWritable() {
        return commands
            .handle({1, helper::kMountReadWrite, {{u"bsdName"_s, device}}},
                    {1, 0, 65534, 65534, {65534}, false})
            .value(u"result"_s, u"<missing>"_s);
    }

    std::function<void(const QString &folder)> afterUnmount;
    std::unique_ptr<testsupport::LoopImage> image;
    QString target, device;
    helper::DeviceFacts facts;
    helper::BlkidVolumeProbe probe;
    helper::HelperCommands commands{*this, facts, probe, *this};
};

// Whatever stands at the mount point after the unmount, put there by someone who may write to its
// parent, the volume goes nowhere, and the answer says so.
TEST_F(MountSafetyTest, AMountPointSwappedAfterTheUnmountNeverReceivesTheVolume) {
    const QString decoy = image->scratchDir() + u"/decoy"_s;
    ASSERT_TRUE(QDir().mkpath(decoy));
    const std::function<void(const QString &)> swaps[] = {
        [&](const QString &folder) { ASSERT_TRUE(QFile::link(decoy, folder)); },
        [](const QString &folder) {
            ASSERT_TRUE(QDir().mkdir(folder));
            ASSERT_EQ(::chown(QFile::encodeName(folder).constData(), 4242, 4242), 0);
        },
    };
    for (const auto &swap : swaps) {
        QString why;
        if (facts.mountsOfDevice(device).isEmpty()) {
            ASSERT_FALSE(image->mount(image->device(), u"ntfs"_s, true, &why).isEmpty())
                << why.toStdString();
        }
        afterUnmount = [&](const QString &unmounted) {
            ASSERT_TRUE(QDir().rename(unmounted, unmounted + u".away"_s));
            swap(unmounted);
        };
        const QString text = makeWritable();
        EXPECT_TRUE(text.contains(u"stays unmounted"_s)) << text.toStdString();
        EXPECT_TRUE(facts.mountsOfDevice(device).isEmpty()); // at the decoy or anywhere
    }
}

// Made writable for nobody where it was, the volume is nobody's and holds nobody's files, which
// others cannot write.
TEST_F(MountSafetyTest, AReadWriteMountIsTheCallersAndKeepsOthersOut) {
    ASSERT_EQ(makeWritable(), u""_s);
    const QList<helper::MountEntry> mounts = facts.mountsOfDevice(device);
    ASSERT_EQ(mounts.size(), 1);
    EXPECT_EQ(mounts[0].target, target);
    // Its owner is its root's, with no record; not for a folder that is not that mount's root.
    EXPECT_EQ(facts.ownerOf(mounts[0], helper::MountRecord()), 65534u);
    helper::MountEntry overmounted = mounts[0];
    overmounted.mountId += 100000;
    EXPECT_EQ(facts.ownerOf(overmounted, helper::MountRecord()), std::nullopt);
    const QString file = target + u"/written"_s, folder = target + u"/made"_s;
    ASSERT_TRUE(testsupport::runCommand(u"setpriv"_s,
                                        {u"--reuid=65534"_s, u"--regid=65534"_s,
                                         u"--clear-groups"_s, u"sh"_s, u"-c"_s,
                                         u"touch -- \"$0\" && mkdir -- \"$1\""_s, file, folder})
                    .ok());
    for (const QString &path : {file, folder}) {
        struct stat info {};
        ASSERT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0);
        EXPECT_EQ(info.st_uid, 65534u) << path.toStdString();
        EXPECT_EQ(info.st_mode & 022, 0u) << path.toStdString();
    }
}

} // namespace
