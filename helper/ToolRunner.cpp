#include "helper/ToolRunner.h"

#include "helper/HelperLogging.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>

#include <fcntl.h>
#include <grp.h>
#include <linux/close_range.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

using namespace Qt::StringLiterals;

namespace helper {

namespace {

constexpr qsizetype kMaxCapturedOutput = 64 * 1024;

QString capped(const QByteArray &bytes) {
    return QString::fromUtf8(bytes.left(kMaxCapturedOutput));
}

void writeAll(int fd, const void *data, size_t size) {
    const char *p = static_cast<const char *>(data);
    while (size > 0) {
        const ssize_t n = ::write(fd, p, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        p += n;
        size -= size_t(n);
    }
}

// Only async-signal-safe calls from here on: this runs between fork and exec.
[[noreturn]] void becomeAndExec(const Identity &identity, const char *path, char *const argv[],
                                char *const envp[], int errorFd) {
    const int devNull = ::open("/dev/null", O_RDWR);
    if (devNull >= 0) {
        ::dup2(devNull, 0);
        ::dup2(devNull, 1);
        ::dup2(devNull, 2);
    }
    // Descriptors the helper holds (clients, the listening socket) must not reach the program.
    ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
    int error = 0;
    if (::setgroups(identity.groups.size(), identity.groups.data()) != 0 ||
        ::setgid(identity.gid) != 0 || ::setuid(identity.uid) != 0)
        error = errno;
    else if (identity.uid != 0 && ::setuid(0) == 0)
        error = EPERM; // privileges could be regained: refuse to go on
    if (error == 0) {
        if (::chdir("/") != 0) {
        }
        ::execve(path, argv, envp);
        error = errno;
    }
    writeAll(errorFd, &error, sizeof error);
    ::_exit(127);
}

} // namespace

QString ProcessToolRunner::locate(const QString &program) {
    if (program.contains(u'/'))
        return {};
    for (const auto &folder : {u"/usr/sbin"_s, u"/usr/bin"_s, u"/sbin"_s, u"/bin"_s}) {
        const QFileInfo candidate(folder + u'/' + program);
        if (candidate.isFile() && candidate.isExecutable())
            return candidate.filePath();
    }
    return {};
}

ToolResult ProcessToolRunner::run(const QString &program, const QStringList &arguments,
                                  std::chrono::milliseconds limit) {
    ToolResult result;
    const QString path = locate(program);
    if (path.isEmpty()) {
        result.errorOutput = u"%1 is not installed"_s.arg(program);
        return result;
    }
    QProcess process;
    QProcessEnvironment environment;
    environment.insert(u"PATH"_s, u"/usr/sbin:/usr/bin:/sbin:/bin"_s);
    environment.insert(u"LC_ALL"_s, u"C.UTF-8"_s);
    process.setProcessEnvironment(environment);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setWorkingDirectory(u"/"_s);
    process.start(path, arguments);
    if (!process.waitForStarted()) {
        result.errorOutput = u"%1 could not be started: %2"_s.arg(program, process.errorString());
        return result;
    }
    result.started = true;
    if (!process.waitForFinished(int(limit.count()))) {
        result.timedOut = true;
        process.kill();
        process.waitForFinished(5000);
        qCWarning(lcHelper) << program << "ran over its time limit and was stopped";
    }
    result.output = capped(process.readAllStandardOutput());
    result.errorOutput = capped(process.readAllStandardError());
    if (!result.timedOut)
        result.exitCode =
            process.exitStatus() == QProcess::NormalExit ? process.exitCode() : 128 + SIGKILL;
    return result;
}

ToolResult ProcessToolRunner::unmount(const QString &target) {
    ToolResult result;
    result.started = true;
    const QByteArray path = QFile::encodeName(target);
    if (::umount2(path.constData(), UMOUNT_NOFOLLOW) == 0) {
        result.exitCode = 0;
        return result;
    }
    const int error = errno;
    result.exitCode = 32; // umount's "unmount failed"
    result.errorOutput =
        u"umount: %1: %2"_s.arg(target, QString::fromLocal8Bit(std::strerror(error)));
    return result;
}

bool ProcessToolRunner::spawnAs(const QString &program, const QStringList &arguments,
                                const Identity &identity, QString *why) {
    const QString path = locate(program);
    if (path.isEmpty()) {
        *why = u"%1 is not installed"_s.arg(program);
        return false;
    }
    // Everything the child needs is built before fork: after it only raw system calls run.
    const std::string pathBytes = path.toStdString();
    std::vector<std::string> argStore{pathBytes};
    for (const QString &argument : arguments)
        argStore.push_back(argument.toStdString());
    std::vector<std::string> envStore;
    for (const QString &entry : identity.environment)
        envStore.push_back(entry.toStdString());
    std::vector<char *> argv, envp;
    for (auto &s : argStore)
        argv.push_back(s.data());
    argv.push_back(nullptr);
    for (auto &s : envStore)
        envp.push_back(s.data());
    envp.push_back(nullptr);

    int errorPipe[2];
    if (::pipe2(errorPipe, O_CLOEXEC) != 0) {
        *why = u"no pipe: %1"_s.arg(QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    const pid_t middle = ::fork();
    if (middle < 0) {
        ::close(errorPipe[0]);
        ::close(errorPipe[1]);
        *why = u"fork failed"_s;
        return false;
    }
    if (middle == 0) {
        // The grandchild is reparented to init, so the helper never has to reap it.
        ::close(errorPipe[0]);
        ::setsid();
        const pid_t child = ::fork();
        if (child == 0)
            becomeAndExec(identity, pathBytes.c_str(), argv.data(), envp.data(), errorPipe[1]);
        ::_exit(child < 0 ? 1 : 0);
    }
    ::close(errorPipe[1]);
    int status = 0;
    while (::waitpid(middle, &status, 0) < 0 && errno == EINTR) {
    }
    int childError = 0;
    ssize_t n;
    while ((n = ::read(errorPipe[0], &childError, sizeof childError)) < 0 && errno == EINTR) {
    }
    ::close(errorPipe[0]);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        *why = u"could not start %1"_s.arg(program);
        return false;
    }
    if (n == sizeof childError) {
        *why = u"could not start %1: %2"_s.arg(program,
                                               QString::fromLocal8Bit(std::strerror(childError)));
        return false;
    }
    return true;
}

} // namespace helper
