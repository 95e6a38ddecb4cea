#include "helper/ToolRunner.h"

#include "helper/HelperLogging.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

using namespace Qt::StringLiterals;

namespace helper {

namespace {

constexpr qsizetype kMaxCapturedOutput = 64 * 1024;
constexpr int kHandedFd = 3;

QString capped(const QByteArray &bytes) {
    return QString::fromUtf8(bytes.left(kMaxCapturedOutput));
}

QString errorText(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

// Splits mount(8)-style options into mount(2) flags and the file system's own data.
unsigned long mountFlags(const QString &options, QStringList *data) {
    static const QHash<QString, unsigned long> kFlags{
        {u"ro"_s, MS_RDONLY},         {u"rw"_s, 0},
        {u"nosuid"_s, MS_NOSUID},     {u"nodev"_s, MS_NODEV},
        {u"noexec"_s, MS_NOEXEC},     {u"noatime"_s, MS_NOATIME},
        {u"relatime"_s, MS_RELATIME}, {u"nodiratime"_s, MS_NODIRATIME},
        {u"sync"_s, MS_SYNCHRONOUS}};
    unsigned long flags = 0;
    for (const QString &option : options.split(u',', Qt::SkipEmptyParts)) {
        if (const auto flag = kFlags.constFind(option); flag != kFlags.cend())
            flags |= *flag;
        else
            data->append(option);
    }
    return flags;
}

// A system call's outcome shaped like the tool's: exit status 32 is what mount and umount
// answer when the kernel refuses.
ToolResult systemCallResult(bool succeeded, const QString &tool, const QString &subject) {
    const int error = errno;
    ToolResult result;
    result.started = true;
    result.exitCode = succeeded ? 0 : 32;
    if (!succeeded)
        result.errorOutput = u"%1: %2: %3"_s.arg(tool, subject, errorText(error));
    return result;
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
                                  std::chrono::milliseconds limit, int handedFd) {
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
    if (handedFd >= 0) {
        // Runs between fork and exec: only async-signal-safe calls. The helper opens every
        // descriptor close-on-exec; dup2 clears that flag on the copy, fcntl when it is already 3.
        process.setChildProcessModifier([handedFd] {
            if (handedFd == kHandedFd)
                ::fcntl(kHandedFd, F_SETFD, 0);
            else
                ::dup2(handedFd, kHandedFd);
        });
    }
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
    const QByteArray path = QFile::encodeName(target);
    return systemCallResult(::umount2(path.constData(), UMOUNT_NOFOLLOW) == 0, u"umount"_s, target);
}

ToolResult ProcessToolRunner::mountOnto(int folderFd, const QString &device, const QString &fsType,
                                        const QString &options) {
    QStringList data;
    const unsigned long flags = mountFlags(options, &data);
    const QByteArray target = "/proc/self/fd/" + QByteArray::number(folderFd);
    const QByteArray source = QFile::encodeName(device);
    const QByteArray type = fsType.toUtf8();
    const QByteArray dataBytes = data.join(u',').toUtf8();
    return systemCallResult(::mount(source.constData(), target.constData(), type.constData(), flags,
                                    dataBytes.isEmpty() ? nullptr : dataBytes.constData()) == 0,
                            u"mount"_s, device);
}

} // namespace helper
