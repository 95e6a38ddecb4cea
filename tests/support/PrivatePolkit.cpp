#include "tests/support/PrivatePolkit.h"

#include "tests/support/SystemCommand.h"
#include "tests/support/Wait.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFileInfo>
#include <QProcessEnvironment>

#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

using namespace Qt::StringLiterals;

namespace testsupport {

namespace {

const QString kPolkitd = u"/usr/lib/polkit-1/polkitd"_s;
const QString kInstalledPolicy = u"/usr/share/polkit-1/actions/com.corvin.vantrelo.policy"_s;
const QString kRulesDir = u"/etc/polkit-1/rules.d"_s;
const QString kLockFile = u"/run/vantrelo-test-polkit.lock"_s;
// Present while the installed policy is one a test put there.
const QString kInstalledByTest = u"/run/vantrelo-test-polkit.installed"_s;

// Anyone may connect and own names: the bus only carries polkit's questions for one test.
const char kBusConfig[] =
    R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=%1</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_type="method_call"/>
    <allow send_type="method_return"/>
    <allow send_type="error"/>
    <allow send_type="signal"/>
    <allow receive_type="*"/>
  </policy>
</busconfig>
)";

bool fail(QString *why, const QString &text) {
    *why = text;
    return false;
}

void stopProcess(QProcess *process) {
    if (process->state() == QProcess::NotRunning)
        return;
    process->terminate();
    if (!process->waitForFinished(10000)) {
        process->kill();
        process->waitForFinished();
    }
}

QString userName(uid_t uid) {
    const passwd *entry = ::getpwuid(uid);
    return entry ? QString::fromLocal8Bit(entry->pw_name) : QString();
}

} // namespace

PrivatePolkit::~PrivatePolkit() {
    stop();
}

QString PrivatePolkit::address() const {
    // Without the server's guid, so a bus started again at the same socket is accepted.
    return u"unix:path="_s + m_dir.filePath(u"system_bus_socket"_s);
}

bool PrivatePolkit::start(const QString &policyFile, QString *why) {
    if (!isRoot())
        return fail(why, u"polkitd and its rules folder need root"_s);
    if (!QFileInfo(kPolkitd).isExecutable())
        return fail(why, kPolkitd + u" is not installed"_s);
    if (!m_dir.isValid())
        return fail(why, u"no temporary folder"_s);
    // polkitd runs as its own user and must reach the socket.
    ::chmod(QFile::encodeName(m_dir.path()).constData(), 0755);
    if (installPolicy(policyFile, why) && startBus(why) && startPolkitd(why))
        return true;
    stop();
    return false;
}

bool PrivatePolkit::startBus(QString *why) {
    QFile config(m_dir.filePath(u"bus.conf"_s));
    const QByteArray text =
        QString::fromLatin1(kBusConfig).arg(m_dir.filePath(u"system_bus_socket"_s)).toUtf8();
    if (!config.open(QIODevice::WriteOnly) || config.write(text) != text.size())
        return fail(why, u"cannot write the bus configuration"_s);
    config.close();
    // Into files, so that a talkative process never blocks on a full pipe nobody reads.
    m_bus.setStandardErrorFile(m_dir.filePath(u"dbus-daemon.log"_s), QIODevice::Append);
    m_bus.start(u"dbus-daemon"_s,
                {u"--config-file="_s + config.fileName(), u"--nofork"_s, u"--print-address"_s});
    // The socket file exists before the bus listens; the printed address means it does.
    while (m_bus.waitForReadyRead(10000) && !m_bus.canReadLine()) {
    }
    if (!m_bus.canReadLine())
        return fail(why, u"dbus-daemon did not start: "_s + logOf(u"dbus-daemon"_s));
    m_bus.readLine();
    return true;
}

bool PrivatePolkit::startPolkitd(QString *why) {
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, address());
    m_polkitd.setProcessEnvironment(environment);
    m_polkitd.setProcessChannelMode(QProcess::MergedChannels);
    m_polkitd.setStandardOutputFile(m_dir.filePath(u"polkitd.log"_s), QIODevice::Append);
    m_polkitd.start(kPolkitd, {u"--no-debug"_s});
    if (!m_polkitd.waitForStarted())
        return fail(why, u"polkitd did not start"_s);
    const QString name = u"vantrelo-test-polkit-%1"_s.arg(quintptr(this));
    bool owned = false;
    {
        QDBusConnection bus = QDBusConnection::connectToBus(address(), name);
        owned = waitUntil([&] {
            return m_polkitd.state() == QProcess::Running &&
                   bus.interface()->isServiceRegistered(u"org.freedesktop.PolicyKit1"_s).value();
        });
    }
    QDBusConnection::disconnectFromBus(name);
    if (!owned)
        return fail(why, u"polkitd never took its name on the bus: "_s + logOf(u"polkitd"_s));
    return true;
}

QString PrivatePolkit::logOf(const QString &program) const {
    QFile log(m_dir.filePath(program + u".log"_s));
    return log.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(log.readAll()) : QString();
}

bool PrivatePolkit::installPolicy(const QString &policyFile, QString *why) {
    m_policyLock.setFileName(kLockFile);
    if (!m_policyLock.open(QIODevice::ReadWrite))
        return fail(why, u"cannot open "_s + kLockFile);
    ::flock(m_policyLock.handle(), LOCK_EX);
    const bool installed =
        QFileInfo::exists(kInstalledPolicy) || (QFile::copy(policyFile, kInstalledPolicy) &&
                                                QFile(kInstalledByTest).open(QIODevice::WriteOnly));
    ::flock(m_policyLock.handle(), LOCK_SH);
    return installed || fail(why, u"cannot install "_s + policyFile);
}

void PrivatePolkit::removePolicy() {
    if (!m_policyLock.isOpen())
        return;
    m_policyLock.close();
    // Whoever gets the lock alone is the last user; the others leave it to them.
    QFile lock(kLockFile);
    if (lock.open(QIODevice::ReadWrite) && ::flock(lock.handle(), LOCK_EX | LOCK_NB) == 0 &&
        QFile::remove(kInstalledByTest))
        QFile::remove(kInstalledPolicy);
}

void PrivatePolkit::stop() {
    stopProcess(&m_polkitd);
    stopProcess(&m_bus);
    for (const QString &rule : std::as_const(m_rules))
        QFile::remove(rule);
    m_rules.clear();
    removePolicy();
}

bool PrivatePolkit::addRule(uid_t uid, bool grant, QString *why) {
    const QString user = userName(uid);
    if (user.isEmpty())
        return fail(why, u"no user has uid %1"_s.arg(uid));
    static std::atomic<int> rules = 0;
    const QString path =
        kRulesDir +
        u"/10-vantrelo-test-%1-%2.rules"_s.arg(::getpid()).arg(++rules, 4, 10, QChar(u'0'));
    QFile rule(path);
    if (!rule.open(QIODevice::WriteOnly))
        return fail(why, u"cannot write "_s + path);
    m_rules << path;
    rule.write(
        u"polkit.addRule(function(action, subject) {\n"
        u"    if (action.id.indexOf(\"com.corvin.vantrelo.\") == 0 && subject.user == \"%1\")\n"
        u"        return polkit.Result.%2;\n"
        u"});\n"_s.arg(user, grant ? u"YES"_s : u"NO"_s)
            .toUtf8());
    rule.close();
    return waitUntil([&] { return pkcheck(uid) == (grant ? 0 : 1); }) ||
           fail(why, u"polkitd never applied the rule in "_s + path);
}

int PrivatePolkit::pkcheck(uid_t uid) const {
    // This process stands in as the subject: polkitd takes the uid it is given.
    QFile stat(u"/proc/self/stat"_s);
    if (!stat.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray fields = stat.readAll();
    const QByteArray startTime = fields.mid(fields.lastIndexOf(')') + 2).split(' ').value(19);
    QProcess pkcheck;
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, address());
    pkcheck.setProcessEnvironment(environment);
    pkcheck.start(u"pkcheck"_s,
                  {u"--action-id"_s, u"com.corvin.vantrelo.erase-system"_s, u"--process"_s,
                   u"%1,%2,%3"_s.arg(::getpid()).arg(QString::fromLatin1(startTime)).arg(uid)});
    const bool finished =
        pkcheck.waitForFinished(30000) && pkcheck.exitStatus() == QProcess::NormalExit;
    return finished ? pkcheck.exitCode() : -1;
}

} // namespace testsupport
