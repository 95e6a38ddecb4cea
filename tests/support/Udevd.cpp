#include "tests/support/Udevd.h"

#include "tests/support/SystemCommand.h"
#include "tests/support/Wait.h"

using namespace Qt::StringLiterals;

namespace testsupport {

namespace {

bool udevAnswers() {
    return runCommand(u"udevadm"_s, {u"control"_s, u"--ping"_s}).ok();
}

} // namespace

Udevd::~Udevd() {
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    m_process.waitForFinished(10000); // QProcess kills it on destruction if still running
}

QString Udevd::start() {
    const QString program = u"/usr/lib/systemd/systemd-udevd"_s;
    if (!isRoot())
        return u"needs root to run udevd"_s;
    if (!m_lock.tryLock(240000))
        return u"another test holds udevd"_s;
    if (udevAnswers())
        return {};
    m_process.start(program, {});
    if (!m_process.waitForStarted())
        return program + u" does not start: "_s + m_process.errorString();
    if (!waitUntil(udevAnswers))
        return u"systemd-udevd does not answer"_s;
    return {};
}

QString Udevd::refresh(const QString &device) {
    const CommandResult trigger =
        runCommand(u"udevadm"_s, {u"trigger"_s, u"--action=change"_s, device});
    const CommandResult settle = runCommand(u"udevadm"_s, {u"settle"_s});
    if (!trigger.ok() || !settle.ok())
        return u"udevadm: "_s + trigger.output + settle.output;
    return {};
}

} // namespace testsupport
