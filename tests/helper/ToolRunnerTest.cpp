#include "helper/ToolRunner.h"

#include "helper/DeviceFacts.h"
#include "helper/UniqueFd.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

TEST(ProcessToolRunner, RunsSystemToolsByNameWithoutAShellCapturingErrorsWithinALimit) {
    helper::ProcessToolRunner runner;
    EXPECT_EQ(runner.run(u"echo"_s, {u"$(id)"_s, u"a;b"_s, u"`x`"_s}, 30s).output,
              u"$(id) a;b `x`\n"_s);
    EXPECT_TRUE(runner.run(u"ls"_s, {u"--"_s, u"/nonexistent-vantrelo"_s}, 30s)
                    .errorOutput.contains(u"nonexistent-vantrelo"_s));
    for (const QString &program : {u"./ls"_s, u"/bin/ls"_s, u"../bin/ls"_s, u"no-such-tool"_s})
        EXPECT_FALSE(runner.run(program, {}, 30s).started) << program.toStdString();
    const auto slept = runner.run(u"sleep"_s, {u"30"_s}, 200ms);
    EXPECT_TRUE(slept.timedOut && !slept.ok());
}

// A folder held by descriptor, then renamed to "moved" with a new empty folder in its place.
class HeldFolder : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(QDir(dir.path()).mkdir(u"held"_s));
        held = helper::UniqueFd(::open(QFile::encodeName(dir.filePath(u"held"_s)).constData(),
                                       O_PATH | O_DIRECTORY | O_CLOEXEC));
        ASSERT_TRUE(held.valid() && QDir(dir.path()).rename(u"held"_s, u"moved"_s) &&
                    QDir(dir.path()).mkdir(u"held"_s));
    }

    QTemporaryDir dir;
    helper::UniqueFd held;
    helper::ProcessToolRunner runner;
};

// The handed folder is the program's descriptor 3, wherever it was in the helper.
TEST_F(HeldFolder, IsHandedToTheProgramAsDescriptor3) {
    const QStringList inode{u"-L"_s, u"-c"_s, u"%i"_s};
    const QString moved =
        runner.run(u"stat"_s, inode + QStringList{dir.filePath(u"moved"_s)}, 30s).output;
    // A copy at 3 itself, when the test process has 3 free, takes the other branch.
    const helper::UniqueFd atThree(::fcntl(held.get(), F_DUPFD_CLOEXEC, 3));
    const helper::UniqueFd high(::fcntl(held.get(), F_DUPFD_CLOEXEC, 40));
    const QStringList fd3 = inode + QStringList{u"/proc/self/fd/3"_s};
    for (const int fd : {atThree.get(), high.get()})
        EXPECT_EQ(runner.run(u"stat"_s, fd3, 30s, fd).output, moved) << fd;
    EXPECT_NE(runner.run(u"stat"_s, fd3, 30s).output, moved);
}

// mount(2) through the descriptor puts the file system on the held folder, not on whatever its
// old path names now, with the flags asked for.
TEST_F(HeldFolder, ReceivesTheMountWithItsFlags) {
    if (!testsupport::isRoot())
        GTEST_SKIP() << "mounting needs root";
    const auto mounted =
        runner.mountOnto(held.get(), u"vantrelo-test"_s, u"tmpfs"_s, u"ro,nosuid,nodev,size=1m"_s);
    ASSERT_TRUE(mounted.ok()) << mounted.errorOutput.toStdString();
    QStringList flags;
    for (const helper::MountEntry &mount : helper::DeviceFacts().mounts()) {
        if (mount.target == dir.filePath(u"moved"_s))
            flags = mount.options.split(u',');
        EXPECT_NE(mount.target, dir.filePath(u"held"_s));
    }
    EXPECT_TRUE(runner.unmount(dir.filePath(u"moved"_s)).ok());
    for (const QString &flag : {u"ro"_s, u"nosuid"_s, u"nodev"_s})
        EXPECT_TRUE(flags.contains(flag)) << flags.join(u',').toStdString();
    EXPECT_FALSE(runner.mountOnto(held.get(), u"vantrelo-test"_s, u"no-such-fs"_s, {}).ok());
}

} // namespace
