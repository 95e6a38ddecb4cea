#include "tests/helper/DaemonFixture.h"

#include "helper/DeviceFacts.h"
#include "helperclient/wire/WireClient.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/Wait.h"

#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using testsupport::LoopImage;
using testsupport::runCommand;
using wire::WireClient;

void DaemonTest::SetUp() {
    if (!testsupport::isRoot())
        GTEST_SKIP() << "the helper daemon mounts and formats devices: needs root";
    QString why;
    ASSERT_TRUE(polkit.start(QStringLiteral(VANTRELO_POLKIT_POLICY), &why)) << why.toStdString();
    ::chmod(QFile::encodeName(socketDir.path()).constData(), 0755);
    socketPath = socketDir.filePath(u"helper.sock"_s);
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, polkit.address());
    daemon.setProcessEnvironment(environment);
    daemon.setProcessChannelMode(QProcess::ForwardedChannels);
    daemon.start(QStringLiteral(VANTRELO_HELPER_DAEMON), {u"--socket"_s, socketPath});
    ASSERT_TRUE(daemon.waitForStarted());
    // Started does not mean listening yet.
    ASSERT_TRUE(testsupport::waitUntil([&] { return bool(WireClient::connectTo(socketPath)); }))
        << "the daemon never listened";
}

void DaemonTest::TearDown() {
    if (daemon.state() != QProcess::NotRunning) {
        daemon.terminate();
        if (!daemon.waitForFinished(60000))
            daemon.kill();
        EXPECT_EQ(daemon.exitStatus(), QProcess::NormalExit);
        EXPECT_FALSE(QFileInfo::exists(socketPath)) << "socket left behind";
    }
    polkit.stop();
}

void DaemonTest::grantClient() {
    QString why;
    ASSERT_TRUE(polkit.grantTo(kClientUid, &why)) << why.toStdString();
}

void GrantedDaemonTest::SetUp() {
    DaemonTest::SetUp();
    if (!IsSkipped() && !HasFatalFailure())
        grantClient();
}

QStringList DaemonTest::clientUser() {
    return {u"--reuid=%1"_s.arg(kClientUid), u"--regid=%1"_s.arg(kClientUid), u"--clear-groups"_s};
}

testsupport::CommandResult DaemonTest::runAsClient(const QStringList &arguments) {
    return runCommand(u"setpriv"_s, clientUser() + arguments, 300000);
}

QStringList DaemonTest::clientCommand(quint64 code, const QStringList &parameters) const {
    return QStringList{QStringLiteral(VANTRELO_WIRE_CLIENT), socketPath, QString::number(code)} +
           parameters;
}

QString DaemonTest::resultOf(const testsupport::CommandResult &run) {
    EXPECT_TRUE(run.ok()) << run.output.toStdString();
    return run.output.section(u"result: "_s, 1).trimmed();
}

QString DaemonTest::sendAsClient(quint64 code, const QStringList &parameters) {
    return resultOf(runAsClient(clientCommand(code, parameters)));
}

QString DaemonTest::sendAsRoot(quint64 code, const QStringList &parameters) {
    const QStringList command = clientCommand(code, parameters);
    return resultOf(runCommand(command.first(), command.mid(1), 300000));
}

QStringList
DaemonTest::sendAtOnceAsClient(const std::vector<std::pair<quint64, QStringList>> &requests) {
    std::vector<std::unique_ptr<QProcess>> clients;
    for (const auto &[code, parameters] : requests) {
        clients.push_back(std::make_unique<QProcess>());
        clients.back()->setProcessChannelMode(QProcess::MergedChannels);
        clients.back()->start(u"setpriv"_s, clientUser() + clientCommand(code, parameters));
    }
    QStringList results;
    for (const auto &client : clients) {
        testsupport::CommandResult run;
        if (client->waitForFinished(300000) && client->exitStatus() == QProcess::NormalExit)
            run = {client->exitCode(), QString::fromLocal8Bit(client->readAll())};
        results << resultOf(run);
    }
    return results;
}

QString DaemonTest::bsdName(const QString &devicePath) {
    return u"bsdName="_s + LoopImage::kernelName(devicePath);
}

std::unique_ptr<LoopImage> DaemonTest::readOnlyNtfs(const QString &label, QString *target) {
    QString why;
    auto image = LoopImage::create(64, &why);
    EXPECT_TRUE(image) << why.toStdString();
    if (!image || !image->format(image->device(), u"ntfs"_s, label, &why))
        return nullptr;
    EXPECT_TRUE(runCommand(u"ntfscp"_s, {image->device(), u"/etc/passwd"_s, u"before.txt"_s}).ok());
    *target = image->mount(image->device(), u"ntfs"_s, true, &why, label);
    EXPECT_FALSE(target->isEmpty()) << why.toStdString();
    ::chmod(QFile::encodeName(image->scratchDir()).constData(), 0755);
    ::chmod(QFile::encodeName(QFileInfo(*target).path()).constData(), 0755);
    return image;
}

void DaemonTest::expectOnlyMount(const QString &devicePath, const QString &target, bool readOnly) {
    const auto mounts = helper::DeviceFacts().mountsOfDevice(LoopImage::kernelName(devicePath));
    ASSERT_EQ(mounts.size(), 1);
    EXPECT_EQ(mounts[0].target, target);
    EXPECT_EQ(mounts[0].readOnly(), readOnly);
}

QString DaemonTest::blkidValue(const QString &devicePath, const QString &tag) {
    return runCommand(u"blkid"_s, {u"-p"_s, u"-o"_s, u"value"_s, u"-s"_s, tag, devicePath})
        .output.trimmed();
}

QString DaemonTest::volumeFlags(const QString &devicePath) {
    return runCommand(u"ntfsinfo"_s, {u"-f"_s, u"-m"_s, devicePath})
        .output.section(u"Volume Flags: "_s, 1)
        .left(6);
}

QString DaemonTest::diskState(const QString &devicePath) {
    QString state = blkidValue(devicePath, u"LABEL"_s);
    for (const auto &mount :
         helper::DeviceFacts().mountsOfDevice(LoopImage::kernelName(devicePath)))
        state += u" %1 %2"_s.arg(mount.target, mount.readOnly() ? u"ro"_s : u"rw"_s);
    return state;
}
