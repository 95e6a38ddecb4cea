#include "helper/ToolRunner.h"

#include "helper/VolumeProbe.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

TEST(ProcessToolRunner, RunsFromTheSystemFoldersOnlyAndCapturesErrors) {
    helper::ProcessToolRunner runner;
    const auto listed = runner.run(u"ls"_s, {u"--"_s, u"/nonexistent-vantrelo"_s}, 30s);
    EXPECT_TRUE(listed.started);
    EXPECT_NE(listed.exitCode, 0);
    EXPECT_TRUE(listed.errorOutput.contains(u"nonexistent-vantrelo"_s));

    // Arguments reach the program as they are: nothing is interpreted by a shell.
    const auto echoed = runner.run(u"echo"_s, {u"$(id)"_s, u"a;b"_s, u"`x`"_s}, 30s);
    ASSERT_TRUE(echoed.ok());
    EXPECT_EQ(echoed.output, u"$(id) a;b `x`\n"_s);

    for (const QString &program : {u"./ls"_s, u"/bin/ls"_s, u"../bin/ls"_s, u"no-such-tool"_s}) {
        const auto refused = runner.run(program, {}, 30s);
        EXPECT_FALSE(refused.started) << program.toStdString();
        EXPECT_FALSE(refused.ok());
    }
}

TEST(ProcessToolRunner, StopsAToolThatRunsOverItsLimit) {
    helper::ProcessToolRunner runner;
    const auto slept = runner.run(u"sleep"_s, {u"30"_s}, 200ms);
    EXPECT_TRUE(slept.timedOut);
    EXPECT_FALSE(slept.ok());
}

TEST(ProcessToolRunner, UnmountOfSomethingNotMountedSaysWhy) {
    helper::ProcessToolRunner runner;
    QTemporaryDir dir;
    const auto result = runner.unmount(dir.path());
    EXPECT_FALSE(result.ok());
    EXPECT_TRUE(result.errorOutput.startsWith(u"umount: "_s + dir.path()));
}

TEST(ProcessToolRunner, SpawnsAsTheGivenUserWithOnlyTheGivenEnvironment) {
    if (!testsupport::isRoot())
        GTEST_SKIP() << "changing to another user needs root";
    QTemporaryDir dir;
    ::chmod(QFile::encodeName(dir.path()).constData(), 0777);
    const QString marker = dir.filePath(u"marker"_s);
    helper::ProcessToolRunner runner;
    helper::Identity nobody{65534, 65534, {65534}, {u"HOME=/nonexistent"_s}};
    QString why;
    ASSERT_TRUE(runner.spawnAs(u"touch"_s, {marker}, nobody, &why)) << why.toStdString();
    // Detached: wait for its effect (a hang guard, not a measure).
    for (int attempt = 0; attempt < 400 && !QFileInfo::exists(marker); ++attempt)
        QThread::msleep(25);
    struct stat info {};
    ASSERT_EQ(::stat(QFile::encodeName(marker).constData(), &info), 0);
    EXPECT_EQ(info.st_uid, 65534u);
    EXPECT_EQ(info.st_gid, 65534u);

    EXPECT_FALSE(runner.spawnAs(u"no-such-tool"_s, {}, nobody, &why));
    EXPECT_FALSE(why.isEmpty());
}

TEST(BlkidVolumeProbe, NamesNtfsWithItsLabelAndOtherwiseWhatItIs) {
    if (!testsupport::haveProgram(u"mkntfs"_s))
        GTEST_SKIP() << "mkntfs is not installed";
    QTemporaryDir dir;
    const QString image = dir.filePath(u"ntfs.img"_s);
    QFile file(image);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_TRUE(file.resize(16 << 20));
    file.close();
    const helper::BlkidVolumeProbe probe;
    EXPECT_EQ(probe.probe(image).type, u""_s);
    ASSERT_TRUE(
        testsupport::runCommand(u"mkntfs"_s, {u"-F"_s, u"-Q"_s, u"-L"_s, u"Läbel -x"_s, image})
            .ok());
    const auto ntfs = probe.probe(image);
    EXPECT_EQ(ntfs.type, u"ntfs"_s);
    EXPECT_EQ(ntfs.label, u"Läbel -x"_s);
    EXPECT_EQ(probe.probe(dir.filePath(u"missing"_s)).type, u""_s);
    if (testsupport::haveProgram(u"mkfs.ext4"_s)) {
        ASSERT_TRUE(testsupport::runCommand(u"mkfs.ext4"_s, {u"-F"_s, u"-q"_s, image}).ok());
        EXPECT_EQ(probe.probe(image).type, u"ext4"_s);
    }
}

} // namespace
