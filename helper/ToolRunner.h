#pragma once

#include <QString>
#include <QStringList>

#include <sys/types.h>

#include <chrono>

namespace helper {

struct ToolResult {
    bool started = false;
    bool timedOut = false;
    int exitCode = -1;
    QString output;      // standard output
    QString errorOutput; // standard error
    bool ok() const { return started && !timedOut && exitCode == 0; }
};

// Runs the system tools the commands need. Programs are given by name and arguments as a list:
// nothing goes through a shell.
class ToolRunner {
public:
    virtual ~ToolRunner() = default;
    // Runs and waits at most `limit`; a program still running then is killed. A `handedFd` of 0
    // or more reaches the program as its descriptor 3 (so "/proc/self/fd/3" names it there).
    virtual ToolResult run(const QString &program, const QStringList &arguments,
                           std::chrono::milliseconds limit, int handedFd = -1) = 0;
    // Unmounts the file system at `target`, with the result shaped like umount's.
    virtual ToolResult unmount(const QString &target) = 0;
    // Mounts the kernel file system `fsType` of `device` onto the folder `folderFd` refers to,
    // with mount(8)-style `options`; the result is shaped like mount's.
    virtual ToolResult mountOnto(int folderFd, const QString &device, const QString &fsType,
                                 const QString &options) = 0;
};

class ProcessToolRunner : public ToolRunner {
public:
    ToolResult run(const QString &program, const QStringList &arguments,
                   std::chrono::milliseconds limit, int handedFd = -1) override;
    // The system call itself: starting umount costs more than the rest of a remount together,
    // and a path handed to the kernel cannot be taken for an option.
    ToolResult unmount(const QString &target) override;
    // mount(2) onto "/proc/self/fd/N", so the folder is never looked up by its path again.
    ToolResult mountOnto(int folderFd, const QString &device, const QString &fsType,
                         const QString &options) override;

    // Absolute path of `program` in the fixed system folders, or "" when absent. The caller's
    // PATH is never consulted.
    static QString locate(const QString &program);
};

} // namespace helper
