#include "UDisksEnvironment.h"

#include "HelperTestSupport.h"
#include "tests/support/SystemCommand.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

const QString kUdisksd = u"/usr/libexec/udisks2/udisksd"_s;

QString udevdProgram() {
    for (const QString &path :
         {u"/lib/systemd/systemd-udevd"_s, u"/usr/lib/systemd/systemd-udevd"_s})
        if (QFileInfo(path).isExecutable())
            return path;
    return {};
}

QByteArray busConfig(const QString &socketPath) {
    // Open policy: only this test's processes are on the bus.
    return QByteArrayLiteral("<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus "
                             "Configuration 1.0//EN\"\n"
                             " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                             "<busconfig>\n  <type>system</type>\n  <listen>unix:path=") +
           socketPath.toUtf8() +
           QByteArrayLiteral(
               "</listen>\n  <auth>EXTERNAL</auth>\n  <policy context=\"default\">\n"
               "    <allow user=\"*\"/>\n    <allow own=\"*\"/>\n"
               "    <allow send_type=\"method_call\"/>\n    <allow send_type=\"signal\"/>\n"
               "    <allow send_requested_reply=\"true\" send_type=\"method_return\"/>\n"
               "    <allow send_requested_reply=\"true\" send_type=\"error\"/>\n"
               "    <allow receive_type=\"method_call\"/>\n"
               "    <allow receive_type=\"method_return\"/>\n"
               "    <allow receive_type=\"error\"/>\n    <allow receive_type=\"signal\"/>\n"
               "  </policy>\n</busconfig>\n");
}

} // namespace

std::unique_ptr<UDisksEnvironment> UDisksEnvironment::start(QString *why) {
    if (!testsupport::isRoot()) {
        *why = u"needs root to run udisksd and attach loop devices"_s;
        return nullptr;
    }
    const QString udevd = udevdProgram();
    for (const QString &program : {u"dbus-daemon"_s, u"udevadm"_s, u"mkntfs"_s}) {
        if (!testsupport::haveProgram(program)) {
            *why = program + u" is not installed"_s;
            return nullptr;
        }
    }
    if (udevd.isEmpty() || !QFileInfo(kUdisksd).isExecutable()) {
        *why = u"systemd-udevd or udisksd is not installed"_s;
        return nullptr;
    }

    std::unique_ptr<UDisksEnvironment> env(new UDisksEnvironment);
    if (!env->m_lock.tryLock(240000)) {
        *why = u"another udisks test environment kept its lock"_s;
        return nullptr;
    }
    const QString socketPath = env->m_dir.filePath(u"system_bus_socket"_s);
    const QString configPath = env->m_dir.filePath(u"system.conf"_s);
    QFile config(configPath);
    if (!config.open(QIODevice::WriteOnly) || config.write(busConfig(socketPath)) < 0) {
        *why = u"cannot write the bus configuration"_s;
        return nullptr;
    }
    config.close();
    if (!env->startProcess(env->m_dbus, u"dbus-daemon"_s,
                           {u"--config-file="_s + configPath, u"--nofork"_s, u"--nopidfile"_s},
                           why))
        return nullptr;
    if (!helpertest::waitUntil([&] { return QFileInfo::exists(socketPath); }, 10000)) {
        *why = u"dbus-daemon did not create its socket: "_s +
               QString::fromLocal8Bit(env->m_dbus.readAll());
        return nullptr;
    }
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", (u"unix:path="_s + socketPath).toUtf8());

    // A udevd the machine already runs is shared, not replaced; ours runs in the foreground so
    // its process id is known for stopping it.
    if (!testsupport::runCommand(u"udevadm"_s, {u"control"_s, u"--ping"_s}, 5000).ok()) {
        if (!env->startProcess(env->m_udevd, udevd, {}, why))
            return nullptr;
        if (!helpertest::waitUntil(
                [] {
                    return testsupport::runCommand(u"udevadm"_s, {u"control"_s, u"--ping"_s}, 2000)
                        .ok();
                },
                10000)) {
            *why =
                u"systemd-udevd did not start: "_s + QString::fromLocal8Bit(env->m_udevd.readAll());
            return nullptr;
        }
    }
    testsupport::runCommand(u"udevadm"_s, {u"trigger"_s, u"--subsystem-match=block"_s});
    testsupport::runCommand(u"udevadm"_s, {u"settle"_s, u"--timeout=30"_s});

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, u"unix:path="_s + socketPath);
    env->m_udisksd.setProcessEnvironment(environment);
    if (!env->startProcess(env->m_udisksd, kUdisksd, {}, why))
        return nullptr;
    QDBusConnectionInterface *bus = QDBusConnection::systemBus().interface();
    if (!bus || !helpertest::waitUntil(
                    [&] { return bus->isServiceRegistered(u"org.freedesktop.UDisks2"_s).value(); },
                    30000)) {
        *why = u"udisksd did not come up on the private bus: "_s +
               QString::fromLocal8Bit(env->m_udisksd.readAll());
        return nullptr;
    }
    return env;
}

bool UDisksEnvironment::startProcess(QProcess &process, const QString &program,
                                     const QStringList &arguments, QString *why) {
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForStarted(10000)) {
        *why = program + u" did not start: "_s + process.errorString();
        return false;
    }
    return true;
}

void UDisksEnvironment::stopProcess(QProcess &process) {
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate(); // SIGTERM to the pid QProcess started
    if (!process.waitForFinished(10000)) {
        process.kill();
        process.waitForFinished(5000);
    }
}

UDisksEnvironment::~UDisksEnvironment() {
    stopProcess(m_udisksd);
    stopProcess(m_udevd);
    stopProcess(m_dbus);
}

void UDisksEnvironment::settle() const {
    testsupport::runCommand(u"udevadm"_s, {u"settle"_s, u"--timeout=30"_s});
}

void UDisksEnvironment::announce(const QString &devicePath) const {
    testsupport::runCommand(u"udevadm"_s, {u"trigger"_s, u"--action=change"_s, devicePath});
    settle();
}
