#include "tests/support/PrivatePolkit.h"

#include "tests/support/SystemCommand.h"
#include "tests/support/Wait.h"

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
const QString kLockFile = u"/run/vantrelo-test-polkit.lock"_s;
// Present while the installed policy is one a test put there.
const QString kInstalledByTest = u"/run/vantrelo-test-polkit.installed"_s;

// Anyone may connect, own names and send: the bus only carries polkit's questions for one test.
const char kBusConfig[] = R"(<busconfig><type>system</type><listen>unix:path=%1</listen>
<auth>EXTERNAL</auth><policy context="default"><allow user="*"/><allow own="*"/>
<allow send_destination="*"/><allow receive_sender="*"/></policy></busconfig>)";

bool fail(QString *why, const QString &text) {
    *why = text;
    return false;
}

void stopProcess(QProcess *process) {
    process->terminate();
    if (process->state() != QProcess::NotRunning && !process->waitForFinished(10000)) {
        process->kill();
        process->waitForFinished();
    }
}

} // namespace

QString PrivatePolkit::address() const {
    // Without the server's guid, so a bus started again at the same socket is accepted.
    return u"unix:path="_s + m_dir.filePath(u"system_bus_socket"_s);
}

bool PrivatePolkit::start(const QString &policyFile, QString *why) {
    if (!isRoot() || !QFileInfo(kPolkitd).isExecutable() || !m_dir.isValid())
        return fail(why, u"needs root, a temporary folder and "_s + kPolkitd);
    // polkitd runs as its own user and must reach the socket.
    ::chmod(QFile::encodeName(m_dir.path()).constData(), 0755);
    if (!installPolicy(policyFile))
        return fail(why, u"cannot install "_s + policyFile);
    if (startProcesses(why))
        return true;
    stop();
    return false;
}

bool PrivatePolkit::startProcesses(QString *why) {
    QFile config(m_dir.filePath(u"bus.conf"_s));
    if (!config.open(QIODevice::WriteOnly) ||
        config.write(
            QString::fromLatin1(kBusConfig).arg(m_dir.filePath(u"system_bus_socket"_s)).toUtf8()) <
            0)
        return fail(why, u"cannot write the bus configuration"_s);
    config.close();
    // Logs go to files, so a talkative process never blocks on a full pipe nobody reads.
    const QString log = m_dir.filePath(u"bus-and-polkitd.log"_s);
    m_bus.setStandardErrorFile(log, QIODevice::Append);
    m_bus.start(u"dbus-daemon"_s,
                {u"--config-file="_s + config.fileName(), u"--nofork"_s, u"--print-address"_s});
    // The socket file exists before the bus listens; the printed address means it does.
    while (m_bus.waitForReadyRead(10000) && !m_bus.canReadLine()) {
    }
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, address());
    m_polkitd.setProcessEnvironment(environment);
    m_polkitd.setProcessChannelMode(QProcess::MergedChannels);
    m_polkitd.setStandardOutputFile(log, QIODevice::Append);
    if (m_bus.canReadLine())
        m_polkitd.start(kPolkitd, {u"--no-debug"_s});
    if (waitUntil(
            [&] { return m_polkitd.state() == QProcess::Running && unsigned(pkcheck(0)) <= 3; }))
        return true;
    QFile text(log);
    return fail(why, u"the bus or polkitd did not start: "_s +
                         QString::fromLocal8Bit(text.open(QIODevice::ReadOnly) ? text.readAll()
                                                                               : QByteArray()));
}

bool PrivatePolkit::installPolicy(const QString &policyFile) {
    m_policyLock.setFileName(kLockFile);
    if (!m_policyLock.open(QIODevice::ReadWrite))
        return false;
    ::flock(m_policyLock.handle(), LOCK_EX);
    const bool installed =
        QFileInfo::exists(kInstalledPolicy) || (QFile::copy(policyFile, kInstalledPolicy) &&
                                                QFile(kInstalledByTest).open(QIODevice::WriteOnly));
    ::flock(m_policyLock.handle(), LOCK_SH);
    return installed;
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
    const passwd *user = ::getpwuid(uid);
    if (!user)
        return fail(why, u"no user has uid %1"_s.arg(uid));
    static std::atomic<int> rules = 0;
    QFile rule(u"/etc/polkit-1/rules.d/10-vantrelo-test-%1-%2.rules"_s.arg(::getpid())
                   .arg(++rules, 4, 10, QChar(u'0')));
    if (!rule.open(QIODevice::WriteOnly))
        return fail(why, u"cannot write "_s + rule.fileName());
    m_rules << rule.fileName();
    rule.write(
        u"polkit.addRule(function(action, subject) {\n"
        u"    if (action.id.indexOf(\"com.corvin.vantrelo.\") == 0 && subject.user == \"%1\")\n"
        u"        return polkit.Result.%2;\n"
        u"});\n"_s.arg(QString::fromLocal8Bit(user->pw_name), grant ? u"YES"_s : u"NO"_s)
            .toUtf8());
    rule.close();
    return waitUntil([&] { return pkcheck(uid) == (grant ? 0 : 1); }) ||
           fail(why, u"polkitd never applied the rule in "_s + rule.fileName());
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
