#include "tests/support/SystemCommand.h"

#include <QProcess>
#include <QStandardPaths>

#include <unistd.h>

namespace testsupport {

CommandResult runCommand(const QString &program, const QStringList &arguments, int timeoutMs) {
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    CommandResult result;
    if (!process.waitForStarted()) {
        result.output = process.errorString();
        return result;
    }
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        result.output = QStringLiteral("timed out");
        return result;
    }
    result.output = QString::fromLocal8Bit(process.readAll());
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return result;
}

bool isRoot() {
    return geteuid() == 0;
}

bool haveProgram(const QString &program) {
    return !QStandardPaths::findExecutable(program).isEmpty() ||
           !QStandardPaths::findExecutable(program,
                                           {QStringLiteral("/sbin"), QStringLiteral("/usr/sbin")})
                .isEmpty();
}

} // namespace testsupport
