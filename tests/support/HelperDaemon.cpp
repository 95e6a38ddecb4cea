#include "tests/support/HelperDaemon.h"

#include "helperclient/wire/WireClient.h"
#include "tests/support/Wait.h"

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace testsupport {

HelperDaemon::HelperDaemon()
    : m_socketPath(m_dir.filePath(u"helper.sock"_s)) {
    // Clients that are not root reach the socket through this folder.
    QFile::setPermissions(m_dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                            QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther |
                                            QFile::ExeOther);
}

HelperDaemon::~HelperDaemon() {
    stop();
}

QString HelperDaemon::start(const QString &program, const QProcessEnvironment &environment,
                            bool showOutput) {
    m_process.setProcessEnvironment(environment);
    if (showOutput) {
        m_process.setProcessChannelMode(QProcess::ForwardedChannels);
    } else {
        m_process.setStandardOutputFile(QProcess::nullDevice());
        m_process.setStandardErrorFile(QProcess::nullDevice());
    }
    m_process.start(program, {u"--socket"_s, m_socketPath});
    if (!m_process.waitForStarted())
        return program + u" did not start: "_s + m_process.errorString();
    if (!waitUntil([this] {
            return m_process.state() != QProcess::Running ||
                   bool(wire::WireClient::connectTo(m_socketPath));
        }) ||
        m_process.state() != QProcess::Running)
        return u"the daemon never listened"_s;
    return {};
}

bool HelperDaemon::stop() {
    if (m_process.state() == QProcess::NotRunning)
        return true;
    m_process.terminate();
    if (!m_process.waitForFinished(60000))
        m_process.kill();
    m_process.waitForFinished();
    return m_process.exitStatus() == QProcess::NormalExit && !QFileInfo::exists(m_socketPath);
}

} // namespace testsupport
