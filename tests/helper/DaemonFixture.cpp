#include "tests/helper/DaemonFixture.h"

#include "helper/DeviceFacts.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"

#include <QProcessEnvironment>

using namespace Qt::StringLiterals;
using testsupport::LoopImage;
using testsupport::runCommand;

void DaemonTest::SetUp() {
    if (!testsupport::isRoot())
        GTEST_SKIP() << "the helper daemon mounts and formats devices: needs root";
    QString why;
    ASSERT_TRUE(polkit.start(QStringLiteral(VANTRELO_POLKIT_POLICY), &why)) << why.toStdString();
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, polkit.address());
    ASSERT_EQ(daemon.start(QStringLiteral(VANTRELO_HELPER_DAEMON), environment), QString());
}

void DaemonTest::TearDown() {
    EXPECT_TRUE(daemon.stop()) << "the daemon crashed or left its socket behind";
    polkit.stop();
}

void DaemonTest::grantClient() {
    QString why;
    ASSERT_TRUE(polkit.grantTo(65534, &why)) << why.toStdString();
}

QStringList DaemonTest::send(const std::vector<Request> &requests, bool asRoot) const {
    const QStringList client{u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s};
    std::vector<std::unique_ptr<QProcess>> processes;
    for (const auto &[code, parameters] : requests) {
        processes.push_back(std::make_unique<QProcess>());
        processes.back()->setProcessChannelMode(QProcess::MergedChannels);
        processes.back()->start(u"setpriv"_s, (asRoot ? QStringList{} : client) +
                                                  QStringList{QStringLiteral(VANTRELO_WIRE_CLIENT),
                                                              socketPath, QString::number(code)} +
                                                  parameters);
    }
    QStringList results;
    for (const auto &process : processes) {
        const bool ran = process->waitForFinished(300000) &&
                         process->exitStatus() == QProcess::NormalExit && process->exitCode() == 0;
        const QString output = QString::fromLocal8Bit(process->readAll());
        EXPECT_TRUE(ran) << output.toStdString();
        results << output.section(u"result: "_s, 1).trimmed();
    }
    return results;
}

QString DaemonTest::bsdName(const QString &devicePath) {
    return u"bsdName="_s + LoopImage::kernelName(devicePath);
}

std::unique_ptr<LoopImage> DaemonTest::ntfsImage(const QString &label) {
    QString why;
    auto image = LoopImage::create(64, &why);
    const bool made = image && image->format(image->device(), u"ntfs"_s, label, &why);
    EXPECT_TRUE(made) << why.toStdString();
    return made ? std::move(image) : nullptr;
}

QString DaemonTest::diskState(const QString &devicePath) {
    QString state =
        runCommand(u"blkid"_s, {u"-p"_s, u"-o"_s, u"value"_s, u"-s"_s, u"LABEL"_s, devicePath})
            .output.trimmed();
    for (const auto &mount :
         helper::DeviceFacts().mountsOfDevice(LoopImage::kernelName(devicePath)))
        state += u" %1 %2"_s.arg(mount.target, mount.readOnly() ? u"ro"_s : u"rw"_s);
    return state;
}
