#include "helperclient/wire/WireClient.h"
#include "tests/support/HelperDaemon.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
using wire::WireClient;

namespace {

bool runTool(const QString &program, const QStringList &arguments, QString *output = nullptr) {
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(120000))
        return false;
    if (output)
        *output = QString::fromUtf8(process.readAll()).trimmed();
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

// The built daemon on a socket of its own for the whole run; the flood benchmark reaches it as
// another user.
testsupport::HelperDaemon &daemon() {
    static testsupport::HelperDaemon instance;
    // One that does not start shows in each benchmark as a daemon that does not answer.
    [[maybe_unused]] static const QString why = instance.start(
        QStringLiteral(VANTRELO_HELPER_DAEMON), QProcessEnvironment::systemEnvironment(), false);
    return instance;
}

// A 64 MiB NTFS image on a loop device, mounted read-only through ntfs-3g.
class Image {
public:
    bool setUp(QString *why) {
        const QString file = m_dir.filePath(u"disk.img"_s);
        m_target = m_dir.filePath(u"volume"_s);
        QDir().mkpath(m_target);
        QFile image(file);
        if (!image.open(QIODevice::WriteOnly) || !image.resize(64 << 20)) {
            *why = u"cannot create the image"_s;
            return false;
        }
        image.close();
        if (!runTool(u"losetup"_s, {u"-f"_s, u"--show"_s, file}, &m_device)) {
            *why = u"losetup failed"_s;
            return false;
        }
        if (!runTool(u"mkntfs"_s, {u"-F"_s, u"-Q"_s, u"-L"_s, u"Bench"_s, m_device})) {
            *why = u"mkntfs failed"_s;
            return false;
        }
        return mountReadOnly();
    }
    ~Image() {
        runTool(u"umount"_s, {u"--"_s, m_target});
        if (!m_device.isEmpty())
            runTool(u"losetup"_s, {u"-d"_s, m_device});
    }
    bool mountReadOnly() {
        runTool(u"umount"_s, {u"--"_s, m_target});
        return runTool(u"ntfs-3g"_s, {u"-o"_s, u"ro"_s, m_device, m_target});
    }
    QString device() const { return m_device; }
    QString name() const { return m_device.mid(5); }
    QString target() const { return m_target; }

private:
    QTemporaryDir m_dir;
    QString m_device;
    QString m_target;
};

// Both mount benchmarks need root and a fresh read-only image; without them they skip, saying why.
bool setUpOrSkip(Image &image, benchmark::State &state) {
    QString why = u"needs root to attach loop devices and mount"_s;
    if (::geteuid() == 0 && image.setUp(&why))
        return true;
    state.SkipWithError(why.toStdString().c_str());
    return false;
}

// Command 1 from request to reply, the volume read-only before each round.
void BM_MountReadWriteCommand(benchmark::State &state) {
    Image image;
    if (!setUpOrSkip(image, state))
        return;
    auto client = WireClient::connectTo(daemon().socketPath());
    if (!client) {
        state.SkipWithError("the daemon does not answer");
        return;
    }
    for (auto _ : state) {
        const QString result =
            client->result(1, {{u"name"_s, u"Bench"_s}, {u"bsdName"_s, image.name()}});
        state.PauseTiming();
        if (!result.isEmpty()) {
            state.SkipWithError(result.toStdString().c_str());
            break;
        }
        image.mountReadOnly();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_MountReadWriteCommand)->Unit(benchmark::kMillisecond)->Iterations(40);

// The same change by hand: umount, then ntfs-3g with the same options.
void BM_MountReadWriteByHand(benchmark::State &state) {
    Image image;
    if (!setUpOrSkip(image, state))
        return;
    const QString options = u"rw,uid=%1,gid=%2,windows_names"_s.arg(::getuid()).arg(::getgid());
    for (auto _ : state) {
        const bool ok = runTool(u"umount"_s, {u"--"_s, image.target()}) &&
                        runTool(u"ntfs-3g"_s, {u"-o"_s, options, image.device(), image.target()});
        state.PauseTiming();
        if (!ok) {
            state.SkipWithError("umount or ntfs-3g failed");
            break;
        }
        image.mountReadOnly();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_MountReadWriteByHand)->Unit(benchmark::kMillisecond)->Iterations(40);

// Version round trips from 8 clients at once; reports the median and 99th percentile of all
// round trips.
void BM_VersionRoundTripUnderLoad(benchmark::State &state) {
    constexpr int kClients = 8;
    constexpr int kRoundsEach = 250;
    std::vector<double> latencies;
    std::mutex mutex;
    for (auto _ : state) {
        std::vector<std::thread> threads;
        for (int c = 0; c < kClients; ++c) {
            threads.emplace_back([&] {
                auto client = WireClient::connectTo(daemon().socketPath());
                if (!client)
                    return;
                std::vector<double> mine;
                mine.reserve(kRoundsEach);
                for (int i = 0; i < kRoundsEach; ++i) {
                    const auto start = std::chrono::steady_clock::now();
                    const auto reply = client->call(7);
                    const auto end = std::chrono::steady_clock::now();
                    if (!reply)
                        return;
                    mine.push_back(std::chrono::duration<double, std::micro>(end - start).count());
                }
                std::lock_guard lock(mutex);
                latencies.insert(latencies.end(), mine.begin(), mine.end());
            });
        }
        for (auto &thread : threads)
            thread.join();
    }
    if (latencies.empty()) {
        state.SkipWithError("no round trip completed");
        return;
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["round_trips"] = double(latencies.size());
    state.counters["median_us"] = latencies[latencies.size() / 2];
    state.counters["p99_us"] =
        latencies[std::min(latencies.size() - 1, latencies.size() * 99 / 100)];
    state.SetItemsProcessed(qint64(latencies.size()));
}
BENCHMARK(BM_VersionRoundTripUnderLoad)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10)
    ->UseRealTime();

// A process of uid 65534 that holds `idle` connections sending nothing and floods version
// requests over `flooding` more, reading and dropping the answers, until stop(). After fork() it
// makes system calls only: the benchmark's other threads may hold locks it would never see freed.
class Flood {
public:
    Flood(const QString &socket, int idle, int flooding)
        : m_fds(size_t(1 + flooding), pollfd{-1, POLLIN | POLLOUT, 0})
        , m_idle(size_t(idle), -1) {
        for (int id = 1; id <= 64; ++id)
            m_requests += wire::encodeRequest({quint64(id), 7, {}});
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const QByteArray path = QFile::encodeName(socket);
        std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
        int control[2], report[2];
        if (::pipe(control) != 0 || ::pipe(report) != 0)
            return;
        m_pid = ::fork();
        if (m_pid == 0) {
            ::close(control[1]);
            ::close(report[0]);
            run(address, control[0], report[1]);
        }
        ::close(control[0]);
        ::close(report[1]);
        m_control = control[1];
        m_report = report[0];
    }
    ~Flood() {
        stop();
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
    }
    // True once every connection is made and the flood has begun.
    bool started() {
        char byte = 0;
        return m_pid > 0 && ::read(m_report, &byte, 1) == 1;
    }
    // Ends the flood; the answer bytes it received.
    qint64 stop() {
        qint64 received = -1;
        if (m_control >= 0) {
            ::close(m_control);
            m_control = -1;
            if (::read(m_report, &received, sizeof received) != sizeof received)
                received = -1;
            ::close(m_report);
        }
        return received;
    }

private:
    [[noreturn]] void run(const sockaddr_un &address, int control, int report) {
        if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)
            ::_exit(1);
        const auto connectOne = [&] {
            const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
            const bool made =
                ::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
            return made ? fd : -1;
        };
        for (int &fd : m_idle)
            fd = connectOne();
        m_fds[0] = {control, POLLIN, 0};
        for (size_t i = 1; i < m_fds.size(); ++i)
            m_fds[i].fd = connectOne();
        std::vector<qsizetype> offsets(m_fds.size(), 0);
        qint64 received = 0;
        char byte = 'r';
        [[maybe_unused]] ssize_t written = ::write(report, &byte, 1);
        static char buffer[65536];
        while (::poll(m_fds.data(), nfds_t(m_fds.size()), -1) >= 0 && !m_fds[0].revents) {
            for (size_t i = 1; i < m_fds.size(); ++i) {
                pollfd &entry = m_fds[i];
                const ssize_t n =
                    entry.revents & POLLIN ? ::recv(entry.fd, buffer, sizeof buffer, 0) : -1;
                received += std::max<ssize_t>(n, 0);
                if (n == 0 || (entry.revents & (POLLERR | POLLHUP | POLLNVAL)))
                    entry.fd = -1;
                if (entry.fd >= 0 && (entry.revents & POLLOUT)) {
                    const ssize_t sent =
                        ::send(entry.fd, m_requests.constData() + offsets[i],
                               size_t(m_requests.size() - offsets[i]), MSG_NOSIGNAL);
                    offsets[i] = (offsets[i] + std::max<ssize_t>(sent, 0)) % m_requests.size();
                }
            }
        }
        written = ::write(report, &received, sizeof received);
        ::_exit(0);
    }

    std::vector<pollfd> m_fds;
    std::vector<int> m_idle;
    QByteArray m_requests;
    pid_t m_pid = -1;
    int m_control = -1;
    int m_report = -1;
};

// Root's version round trip while uid 65534 holds 48 idle connections and floods version
// requests over 8 more: the bound a flooding user puts on everyone else's answers.
void BM_RootVersionUnderAnotherUsersFlood(benchmark::State &state) {
    if (::geteuid() != 0) {
        state.SkipWithError("needs root to flood as another user");
        return;
    }
    auto client = WireClient::connectTo(daemon().socketPath());
    Flood flood(daemon().socketPath(), 48, 8);
    if (!client || !flood.started()) {
        state.SkipWithError("the daemon does not answer or the flood did not start");
        return;
    }
    std::vector<double> latencies;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const auto reply = client->call(7);
        const auto end = std::chrono::steady_clock::now();
        if (!reply) {
            state.SkipWithError("root's version request went unanswered");
            return;
        }
        latencies.push_back(std::chrono::duration<double, std::micro>(end - start).count());
    }
    const qint64 floodBytes = flood.stop();
    std::sort(latencies.begin(), latencies.end());
    state.counters["median_us"] = latencies[latencies.size() / 2];
    state.counters["p99_us"] =
        latencies[std::min(latencies.size() - 1, latencies.size() * 99 / 100)];
    state.counters["max_us"] = latencies.back();
    state.counters["flood_answers"] =
        double(floodBytes) / double(wire::encodeReply({1, {{u"result"_s, u"1.0.1"_s}}}).size());
}
BENCHMARK(BM_RootVersionUnderAnotherUsersFlood)
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(5000)
    ->UseRealTime();

} // namespace

BENCHMARK_MAIN();
