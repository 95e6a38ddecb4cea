#include "UDisksEnvironment.h"

#include "HelperTestSupport.h"
#include "tests/support/SystemCommand.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFileInfo>

using namespace Qt::StringLiterals;
using helpertest::waitUntil;

namespace {

const QString kUdisksd = u"/usr/libexec/udisks2/udisksd"_s;

bool udevAnswers() {
    return testsupport::runCommand(u"udevadm"_s, {u"control"_s, u"--ping"_s}, 2000).ok();
}

bool started(QProcess &process, const QString &program, QString *why) {
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, {});
    if (process.waitForStarted(10000))
        return true;
    *why = program + u" did not start: "_s + process.errorString();
    return false;
}

} // namespace

std::unique_ptr<UDisksEnvironment> UDisksEnvironment::start(QString *why) {
    if (!testsupport::isRoot()) {
        *why = u"needs root to run udisksd and attach loop devices"_s;
        return nullptr;
    }
    QString udevd;
    for (const QString &path :
         {u"/lib/systemd/systemd-udevd"_s, u"/usr/lib/systemd/systemd-udevd"_s})
        if (udevd.isEmpty() && QFileInfo(path).isExecutable())
            udevd = path;
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
    const QString address =
        helpertest::startBusDaemon(env->m_dbus, env->m_dir.path(), u"system"_s, why);
    if (address.isEmpty())
        return nullptr;
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", address.toUtf8());

    // A udevd the machine already runs is shared, not replaced; ours runs in the foreground so
    // its process id is known for stopping it.
    if (!udevAnswers()) {
        if (!started(env->m_udevd, udevd, why))
            return nullptr;
        if (!waitUntil(udevAnswers, 10000)) {
            *why =
                u"systemd-udevd did not start: "_s + QString::fromLocal8Bit(env->m_udevd.readAll());
            return nullptr;
        }
    }
    testsupport::runCommand(u"udevadm"_s, {u"trigger"_s, u"--subsystem-match=block"_s});
    env->announce();

    // udisksd inherits DBUS_SYSTEM_BUS_ADDRESS from this process.
    if (!started(env->m_udisksd, kUdisksd, why))
        return nullptr;
    QDBusConnectionInterface *bus = QDBusConnection::systemBus().interface();
    if (!bus ||
        !waitUntil([&] { return bus->isServiceRegistered(u"org.freedesktop.UDisks2"_s).value(); },
                   30000)) {
        *why = u"udisksd did not come up on the private bus: "_s +
               QString::fromLocal8Bit(env->m_udisksd.readAll());
        return nullptr;
    }
    return env;
}

UDisksEnvironment::~UDisksEnvironment() {
    helpertest::stopProcess(m_udisksd);
    helpertest::stopProcess(m_udevd);
    helpertest::stopProcess(m_dbus);
}

void UDisksEnvironment::announce(const QString &devicePath) const {
    if (!devicePath.isEmpty())
        testsupport::runCommand(u"udevadm"_s, {u"trigger"_s, u"--action=change"_s, devicePath});
    testsupport::runCommand(u"udevadm"_s, {u"settle"_s, u"--timeout=30"_s});
}
