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

// mount(2) through a held folder's descriptor puts the file system on that folder, even once its
// path names another one, with the flags asked for.
TEST(ProcessToolRunner, MountsOntoTheHeldFolder) {
    if (!testsupport::isRoot())
        GTEST_SKIP() << "mounting needs root";
    QTemporaryDir dir;
    const QString held = dir.filePath(u"held"_s), moved = dir.filePath(u"moved"_s);
    ASSERT_TRUE(QDir().mkdir(held));
    const helper::UniqueFd fd(
        ::open(QFile::encodeName(held).constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(fd.valid() && QDir().rename(held, moved) && QDir().mkdir(held));
    helper::ProcessToolRunner runner;
    const auto mounted =
        runner.mountOnto(fd.get(), u"vantrelo-test"_s, u"tmpfs"_s, u"ro,nosuid,nodev,size=1m"_s);
    ASSERT_TRUE(mounted.ok()) << mounted.errorOutput.toStdString();
    QStringList flags;
    for (const helper::MountEntry &mount : helper::DeviceFacts().mounts()) {
        if (mount.target == moved)
            flags = mount.options.split(u',');
        EXPECT_NE(mount.target, held);
    }
    EXPECT_TRUE(runner.unmount(moved).ok());
    for (const QString &flag : {u"ro"_s, u"nosuid"_s, u"nodev"_s})
        EXPECT_TRUE(flags.contains(flag)) << flags.join(u',').toStdString();
    EXPECT_FALSE(runner.mountOnto(fd.get(), u"vantrelo-test"_s, u"no-such-fs"_s, {}).ok());
}

} // namespace
