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
#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

TEST(ProcessToolRunner, RunsSystemToolsWithoutAShellCapturingErrorsWithinALimit) {
    helper::ProcessToolRunner runner;
    const auto listed = runner.run(u"ls"_s, {u"--"_s, u"/nonexistent-vantrelo"_s}, 30s);
    EXPECT_TRUE(listed.started);
    EXPECT_NE(listed.exitCode, 0);
    EXPECT_TRUE(listed.errorOutput.contains(u"nonexistent-vantrelo"_s));
    const auto echoed = runner.run(u"echo"_s, {u"$(id)"_s, u"a;b"_s, u"`x`"_s}, 30s);
    ASSERT_TRUE(echoed.ok());
    EXPECT_EQ(echoed.output, u"$(id) a;b `x`\n"_s);
    for (const QString &program : {u"./ls"_s, u"/bin/ls"_s, u"../bin/ls"_s, u"no-such-tool"_s})
        EXPECT_FALSE(runner.run(program, {}, 30s).started) << program.toStdString();
    const auto slept = runner.run(u"sleep"_s, {u"30"_s}, 200ms);
    EXPECT_TRUE(slept.timedOut);
    EXPECT_FALSE(slept.ok());
}

helper::UniqueFd holdFolder(const QString &path) {
    return helper::UniqueFd(
        ::open(QFile::encodeName(path).constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// The handed folder is the program's descriptor 3, wherever it was in the helper, and it is the
// folder itself even after its path names something else.
TEST(ProcessToolRunner, HandsOneFolderToTheProgramAsDescriptor3) {
    QTemporaryDir dir;
    ASSERT_TRUE(QDir(dir.path()).mkdir(u"held"_s));
    const helper::UniqueFd held = holdFolder(dir.filePath(u"held"_s));
    ASSERT_TRUE(held.valid());
    struct stat info {};
    ASSERT_EQ(::fstat(held.get(), &info), 0);
    const QString identity = u"%1\n"_s.arg(info.st_ino);
    ASSERT_TRUE(QDir(dir.path()).rename(u"held"_s, u"moved"_s));
    ASSERT_TRUE(QDir(dir.path()).mkdir(u"held"_s));

    // A copy at 3 itself, when the test process has 3 free, takes the other branch.
    const helper::UniqueFd atThree(::fcntl(held.get(), F_DUPFD_CLOEXEC, 3));
    const helper::UniqueFd high(::fcntl(held.get(), F_DUPFD_CLOEXEC, 40));
    helper::ProcessToolRunner runner;
    for (const int fd : {atThree.get(), high.get()}) {
        SCOPED_TRACE(fd);
        const auto seen =
            runner.run(u"stat"_s, {u"-L"_s, u"-c"_s, u"%i"_s, u"/proc/self/fd/3"_s}, 30s, fd);
        ASSERT_TRUE(seen.ok()) << seen.errorOutput.toStdString();
        EXPECT_EQ(seen.output, identity);
    }
    const auto without =
        runner.run(u"stat"_s, {u"-L"_s, u"-c"_s, u"%i"_s, u"/proc/self/fd/3"_s}, 30s);
    EXPECT_NE(without.output, identity);
}

// mount(2) through the descriptor puts the file system on the held folder, not on whatever its
// old path names now, with the flags asked for.
TEST(ProcessToolRunner, MountsOntoTheHeldFolder) {
    if (!testsupport::isRoot())
        GTEST_SKIP() << "mounting needs root";
    QTemporaryDir dir;
    ASSERT_TRUE(QDir(dir.path()).mkdir(u"held"_s));
    const helper::UniqueFd held = holdFolder(dir.filePath(u"held"_s));
    ASSERT_TRUE(QDir(dir.path()).rename(u"held"_s, u"moved"_s));
    ASSERT_TRUE(QDir(dir.path()).mkdir(u"held"_s));
    helper::ProcessToolRunner runner;
    const auto mounted =
        runner.mountOnto(held.get(), u"vantrelo-test"_s, u"tmpfs"_s, u"ro,nosuid,nodev,size=1m"_s);
    ASSERT_TRUE(mounted.ok()) << mounted.errorOutput.toStdString();
    const QString moved = dir.filePath(u"moved"_s);
    QString options;
    for (const helper::MountEntry &mount : helper::DeviceFacts().mounts()) {
        if (mount.target == moved)
            options = mount.options;
        EXPECT_NE(mount.target, dir.filePath(u"held"_s));
    }
    EXPECT_TRUE(runner.unmount(moved).ok());
    const QStringList flags = options.split(u',');
    for (const QString &flag : {u"ro"_s, u"nosuid"_s, u"nodev"_s})
        EXPECT_TRUE(flags.contains(flag)) << options.toStdString();
    EXPECT_FALSE(runner.mountOnto(held.get(), u"vantrelo-test"_s, u"no-such-fs"_s, {}).ok());
}

} // namespace
