#include "tests/support/SystemCommand.h"

#include <QProcess>
#include <QStandardPaths>

#include <unistd.h>

namespace testsupport {

CommandResult runCommand(const QString &program, const QStringList &arguments, int timeoutMs) {
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForStarted())
        return {-1, process.errorString()};
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        return {-1, QStringLiteral("timed out")};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromLocal8Bit(process.readAll())};
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
