#include "helperclient/wire/WireClient.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
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

// The built daemon on a socket of its own for the whole run.
class Daemon {
public:
    Daemon() {
        m_socket = m_dir.filePath(u"helper.sock"_s);
        m_process.setProgram(QStringLiteral(VANTRELO_HELPER_DAEMON));
        m_process.setArguments({u"--socket"_s, m_socket});
        m_process.setStandardOutputFile(QProcess::nullDevice());
        m_process.setStandardErrorFile(QProcess::nullDevice());
        m_process.start();
        m_process.waitForStarted();
        for (int attempt = 0; attempt < 400 && !WireClient::connectTo(m_socket); ++attempt)
            QThread::msleep(25);
    }
    ~Daemon() {
        m_process.terminate();
        m_process.waitForFinished(30000);
    }
    QString socket() const { return m_socket; }

private:
    QTemporaryDir m_dir;
    QString m_socket;
    QProcess m_process;
};

Daemon &daemon() {
    static Daemon instance;
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
    auto client = WireClient::connectTo(daemon().socket());
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
                auto client = WireClient::connectTo(daemon().socket());
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

} // namespace

BENCHMARK_MAIN();
