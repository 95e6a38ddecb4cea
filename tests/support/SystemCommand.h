#pragma once

#include <QString>
#include <QStringList>

namespace testsupport {

struct CommandResult {
    int exitCode = -1;
    QString output; // standard output and standard error together
    bool ok() const { return exitCode == 0; }
};

// Runs a program from argv, no shell, and waits for it (at most timeoutMs).
CommandResult runCommand(const QString &program, const QStringList &arguments,
                         int timeoutMs = 60000);
bool isRoot();
bool haveProgram(const QString &program);

} // namespace testsupport
