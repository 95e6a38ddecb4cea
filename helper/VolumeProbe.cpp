#include "helper/VolumeProbe.h"

#include "helper/UniqueFd.h"

#include <QFile>
#include <QList>

#include <blkid.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <mutex>

using namespace Qt::StringLiterals;

namespace helper {

namespace {

using Clock = std::chrono::steady_clock;

struct ProbeDeleter {
    void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};
using UniqueProbe = std::unique_ptr<std::remove_pointer_t<blkid_probe>, ProbeDeleter>;

// The child's reply: its errno from opening the device, then TYPE and LABEL, each ending in NUL.
struct Reply {
    char data[1024];
    size_t used = sizeof(int);

    void append(const char *text, size_t length) {
        length = std::min(length, sizeof data - used - 1);
        std::memcpy(data + used, text, length);
        used += length;
        data[used++] = '\0';
    }
};

void appendValue(blkid_probe probe, const char *name, Reply *reply) {
    const char *data = nullptr;
    size_t length = 0;
    if (blkid_probe_lookup_value(probe, name, &data, &length) != 0 || !data)
        length = 0;
    // The length counts the terminating NUL.
    reply->append(data ? data : "", length > 0 ? length - 1 : 0);
}

bool probeWith(int fd, bool ntfsOnly, Reply *reply) {
    const UniqueProbe probe(blkid_new_probe());
    if (!probe || blkid_probe_set_device(probe.get(), fd, 0, 0) != 0)
        return false;
    blkid_probe_enable_superblocks(probe.get(), 1);
    blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_TYPE | BLKID_SUBLKS_LABEL);
    if (ntfsOnly) {
        char ntfs[] = "ntfs";
        char *only[] = {ntfs, nullptr};
        blkid_probe_filter_superblocks_type(probe.get(), BLKID_FLTR_ONLYIN, only);
    } else {
        blkid_probe_enable_partitions(probe.get(), 1);
    }
    if (blkid_do_safeprobe(probe.get()) != 0)
        return false;
    appendValue(probe.get(), "TYPE", reply);
    appendValue(probe.get(), "LABEL", reply);
    return true;
}

// Runs in the forked child: plain C only, as other threads' locks were copied mid-use. The NTFS
// check comes first and alone, since trying every known signature costs more than the rest of a
// mount; only a volume that is not NTFS gets the full probe, to name what it is.
[[noreturn]] void probeInChild(const char *devicePath, int out) {
    struct sigaction defaults {};
    defaults.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal)
        ::sigaction(signal, &defaults, nullptr);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    // A child stuck on the device must not keep the helper's sockets open.
    if (out > 3)
        ::close_range(3, unsigned(out) - 1, 0);
    ::close_range(unsigned(out) + 1, ~0U, 0);

    Reply reply;
    int error = 0;
    const int fd = ::open(devicePath, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        error = errno;
    } else if (!probeWith(fd, true, &reply)) {
        reply.used = sizeof(int);
        probeWith(fd, false, &reply);
    }
    std::memcpy(reply.data, &error, sizeof error);
    for (size_t sent = 0; sent < reply.used;) {
        const ssize_t n = ::write(out, reply.data + sent, reply.used - sent);
        if (n <= 0 && errno != EINTR)
            break;
        sent += n > 0 ? size_t(n) : 0;
    }
    // The reply is out before the device's last close, which may itself wait on the device.
    ::close(out);
    ::_exit(0);
}

// Children killed at the limit that the kernel has not released yet, with the device each read.
std::mutex g_stuckMutex;
QList<std::pair<pid_t, QByteArray>> g_stuck;

// Reaps the stuck children that are gone; true when one still reads `devicePath`.
bool stillReading(const QByteArray &devicePath) {
    const std::lock_guard lock(g_stuckMutex);
    g_stuck.removeIf(
        [](const auto &child) { return ::waitpid(child.first, nullptr, WNOHANG) != 0; });
    return std::any_of(g_stuck.cbegin(), g_stuck.cend(),
                       [&](const auto &child) { return child.second == devicePath; });
}

void killAndLeave(pid_t pid, const QByteArray &devicePath) {
    ::kill(pid, SIGKILL);
    if (::waitpid(pid, nullptr, WNOHANG) != 0)
        return;
    const std::lock_guard lock(g_stuckMutex);
    g_stuck.append({pid, devicePath});
}

// Waits for `fd` to become readable; false at the deadline.
bool waitReadable(int fd, Clock::time_point deadline) {
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() < 0)
            return false;
        pollfd entry{fd, POLLIN, 0};
        const int ready = ::poll(&entry, 1, int(std::min<qint64>(left.count(), 60000)));
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return false;
    }
}

// Everything the child writes until it closes the pipe; false at the deadline.
bool readReply(int fd, Clock::time_point deadline, QByteArray *reply) {
    char buffer[1024];
    while (waitReadable(fd, deadline)) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n == 0)
            return true;
        if (n < 0 && errno != EINTR)
            return false;
        if (n > 0 && reply->size() < qsizetype(sizeof(Reply::data)))
            reply->append(buffer, n);
    }
    return false;
}

VolumeProbe::Volume failed(const QString &text) {
    return {{}, {}, text};
}

} // namespace

BlkidVolumeProbe::BlkidVolumeProbe(std::chrono::milliseconds limit)
    : m_limit(limit) {}

VolumeProbe::Volume BlkidVolumeProbe::probe(const QString &devicePath) const {
    const QByteArray path = QFile::encodeName(devicePath);
    const QString name = devicePath.section(u'/', -1);
    const QString slow = u"Reading %1 did not finish within %2 s; the device may be failing. "
                         u"Unplug it and try another port or cable."_s.arg(name)
                             .arg(qMax<qint64>(1, qint64(m_limit.count() / 1000)));
    if (stillReading(path))
        return failed(slow);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return failed(u"Could not start reading %1: %2"_s.arg(
            name, QString::fromLocal8Bit(std::strerror(errno))));
    UniqueFd readEnd(ends[0]), writeEnd(ends[1]);
    const Clock::time_point deadline = Clock::now() + m_limit;
    const pid_t pid = ::fork();
    if (pid == 0)
        probeInChild(path.constData(), writeEnd.get());
    if (pid < 0)
        return failed(u"Could not start reading %1: %2"_s.arg(
            name, QString::fromLocal8Bit(std::strerror(errno))));
    writeEnd.reset();
    // By syscall: this glibc's header declares pidfd_open without C linkage.
    const UniqueFd exited(int(::syscall(SYS_pidfd_open, pid, 0)));
    QByteArray reply;
    const bool answered = readReply(readEnd.get(), deadline, &reply);
    if (answered && exited.get() >= 0 && waitReadable(exited.get(), deadline))
        ::waitpid(pid, nullptr, 0);
    else
        killAndLeave(pid, path);

    if (!answered)
        return failed(slow);
    int error = 0;
    if (reply.size() < qsizetype(sizeof error))
        return failed(u"Reading %1 stopped unexpectedly."_s.arg(name));
    std::memcpy(&error, reply.constData(), sizeof error);
    if (error != 0)
        return failed(u"%1 could not be opened: %2"_s.arg(
            name, QString::fromLocal8Bit(std::strerror(error))));
    const QList<QByteArray> values = reply.mid(sizeof error).split('\0');
    return {QString::fromUtf8(values.value(0)), QString::fromUtf8(values.value(1)), {}};
}

} // namespace helper
