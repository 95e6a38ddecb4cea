#pragma once

#include <QString>
#include <QStringList>

#include <sys/types.h>

#include <chrono>
#include <vector>

namespace helper {

struct ToolResult {
    bool started = false;
    bool timedOut = false;
    int exitCode = -1;
    QString output;      // standard output
    QString errorOutput; // standard error
    bool ok() const { return started && !timedOut && exitCode == 0; }
};

// Who a program started on a client's behalf runs as.
struct Identity {
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups;
    QStringList environment; // KEY=value entries, the whole environment of the program
};

// Runs the system tools the commands need. Programs are given by name and arguments as a list:
// nothing goes through a shell.
class ToolRunner {
public:
    virtual ~ToolRunner() = default;
    // Runs and waits at most `limit`; a program still running then is killed.
    virtual ToolResult run(const QString &program, const QStringList &arguments,
                           std::chrono::milliseconds limit) = 0;
    // Starts a program detached from the helper under the given identity; does not wait for it.
    virtual bool spawnAs(const QString &program, const QStringList &arguments,
                         const Identity &identity, QString *why) = 0;
    // Unmounts the file system at `target`, with the result shaped like umount's.
    virtual ToolResult unmount(const QString &target) = 0;
};

class ProcessToolRunner : public ToolRunner {
public:
    ToolResult run(const QString &program, const QStringList &arguments,
                   std::chrono::milliseconds limit) override;
    bool spawnAs(const QString &program, const QStringList &arguments, const Identity &identity,
                 QString *why) override;
    // The system call itself: starting umount costs more than the rest of a remount together,
    // and a path handed to the kernel cannot be taken for an option.
    ToolResult unmount(const QString &target) override;

    // Absolute path of `program` in the fixed system folders, or "" when absent. The caller's
    // PATH is never consulted.
    static QString locate(const QString &program);
};

} // namespace helper
