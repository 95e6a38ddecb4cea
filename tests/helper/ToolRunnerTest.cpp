#include "helper/ToolRunner.h"

#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

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

TEST(ProcessToolRunner, SpawnsAsTheGivenUser) {
    if (!testsupport::isRoot())
        GTEST_SKIP() << "changing to another user needs root";
    QTemporaryDir dir;
    ::chmod(QFile::encodeName(dir.path()).constData(), 0777);
    const QString marker = dir.filePath(u"marker"_s);
    helper::ProcessToolRunner runner;
    const helper::Identity nobody{65534, 65534, {65534}, {u"HOME=/nonexistent"_s}};
    QString why;
    ASSERT_TRUE(runner.spawnAs(u"touch"_s, {marker}, nobody, &why)) << why.toStdString();
    // Detached: wait for its effect (a hang guard, not a measure).
    for (int attempt = 0; attempt < 400 && !QFileInfo::exists(marker); ++attempt)
        QThread::msleep(25);
    struct stat info {};
    ASSERT_EQ(::stat(QFile::encodeName(marker).constData(), &info), 0);
    EXPECT_EQ(info.st_uid, 65534u);
    EXPECT_EQ(info.st_gid, 65534u);
}

} // namespace
