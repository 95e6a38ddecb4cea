// Disk discovery figures on a table of 1,000 bind mounts of one ext4 image, made in a private
// mount namespace so nothing outside the process sees them. Needs root.
#include "disk/NTDiskManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <sched.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <vector>

extern char **environ;

using namespace Qt::StringLiterals;

namespace {

constexpr int kBindMounts = 1000;

struct Namespace {
    QTemporaryDir dir;
    QString base;
    bool ready = false;
    QString error;
};

Namespace &mountNamespace() {
    static Namespace ns = [] {
        Namespace made;
        if (geteuid() != 0) {
            made.error = u"needs root"_s;
            return made;
        }
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            made.error = u"cannot make a private mount namespace"_s;
            return made;
        }
        // Everything below lives on a private tmpfs that goes away with the namespace.
        if (mount("none", QFile::encodeName(made.dir.path()).constData(), "tmpfs", 0, nullptr) !=
            0) {
            made.error = u"cannot mount a tmpfs"_s;
            return made;
        }
        const QString image = made.dir.filePath(u"ext4.img"_s);
        made.base = made.dir.filePath(u"base"_s);
        QDir().mkpath(made.base);
        const bool imageMade =
            QProcess::execute(u"truncate"_s, {u"-s"_s, u"64M"_s, image}) == 0 &&
            QProcess::execute(u"mkfs.ext4"_s, {u"-q"_s, u"-F"_s, image}) == 0 &&
            QProcess::execute(u"mount"_s, {u"-o"_s, u"loop"_s, image, made.base}) == 0;
        if (!imageMade) {
            made.error = u"cannot mount the ext4 image"_s;
            return made;
        }
        made.ready = true;
        return made;
    }();
    return ns;
}

bool addBindMounts(Namespace &ns) {
    static bool done = false;
    for (int i = 0; !done && i < kBindMounts; ++i) {
        const QString target = ns.dir.filePath(u"bind/%1"_s.arg(i));
        QDir().mkpath(target);
        if (mount(QFile::encodeName(ns.base).constData(), QFile::encodeName(target).constData(),
                  nullptr, MS_BIND, nullptr) != 0)
            return false;
    }
    done = true;
    return true;
}

class TimingDelegate final : public DiskMountDelegate {
public:
    void diskDidMount(const NTDiskDrivePtr &) override {
        mountedAt = std::chrono::steady_clock::now();
        mounted = true;
    }
    void diskDidUnMount(const QString &) override { unmounted = true; }
    std::chrono::steady_clock::time_point mountedAt;
    bool mounted = false;
    bool unmounted = false;
};

void BM_MountEventLatency(benchmark::State &state) {
    Namespace &ns = mountNamespace();
    if (!ns.ready) {
        state.SkipWithError(ns.error.toStdString().c_str());
        return;
    }
    NTDiskManager manager(DiskSystem::local());
    TimingDelegate delegate;
    manager.setDelegate(&delegate);
    manager.startMonitoring();
    const QByteArray target = QFile::encodeName(ns.dir.filePath(u"latency"_s));
    QDir().mkpath(QString::fromLocal8Bit(target));
    for (auto _ : state) {
        delegate.mounted = delegate.unmounted = false;
        if (mount(QFile::encodeName(ns.base).constData(), target.constData(), nullptr, MS_BIND,
                  nullptr) != 0) {
            state.SkipWithError("mount failed");
            return;
        }
        const auto returned = std::chrono::steady_clock::now();
        while (!delegate.mounted)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        state.SetIterationTime(
            std::chrono::duration<double>(delegate.mountedAt - returned).count());
        umount(target.constData());
        while (!delegate.unmounted)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}
BENCHMARK(BM_MountEventLatency)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(200)
    ->ComputeStatistics("p50", [](const std::vector<double> &v) {
        auto copy = v;
        std::nth_element(copy.begin(), copy.begin() + long(copy.size() / 2), copy.end());
        return copy[copy.size() / 2];
    });

void BM_GetAllDiskDrive1000Mounts(benchmark::State &state) {
    Namespace &ns = mountNamespace();
    if (!ns.ready || !addBindMounts(ns)) {
        state.SkipWithError(ns.ready ? "bind mounts failed" : ns.error.toStdString().c_str());
        return;
    }
    NTDiskManager manager(DiskSystem::local());
    qsizetype listed = 0;
    for (auto _ : state) {
        const NTDiskDriveList drives = manager.getAllDiskDrive();
        listed = drives.size();
        benchmark::DoNotOptimize(drives);
    }
    state.counters["volumes"] = double(listed);
}
BENCHMARK(BM_GetAllDiskDrive1000Mounts)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();

double runProcess(const std::vector<std::string> &argv) {
    std::vector<char *> args;
    for (const auto &arg : argv)
        args.push_back(const_cast<char *>(arg.c_str()));
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    if (posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ) != 0)
        return -1;
    int status = 0;
    waitpid(pid, &status, 0);
    posix_spawn_file_actions_destroy(&actions);
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// Whole processes, run alternately so both see the same machine state.
void BM_ListJsonAgainstFindmnt(benchmark::State &state) {
    Namespace &ns = mountNamespace();
    if (!ns.ready || !addBindMounts(ns)) {
        state.SkipWithError("no mount namespace with bind mounts");
        return;
    }
    const std::string ctl = VANTRELOCTL_PATH;
    std::vector<double> ours, theirs;
    for (auto _ : state) {
        ours.push_back(runProcess({ctl, "list", "--json"}));
        theirs.push_back(runProcess({"findmnt", "-J"}));
        state.SetIterationTime(ours.back() / 1000.0);
    }
    state.counters["vantreloctl_ms"] = median(ours);
    state.counters["findmnt_ms"] = median(theirs);
    state.counters["ratio"] = median(ours) / median(theirs);
}
BENCHMARK(BM_ListJsonAgainstFindmnt)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(60);

// Voluntary context switches of every thread while the monitor sits idle: each is a wake-up.
void BM_IdleWakeupsPerMinute(benchmark::State &state) {
    NTDiskManager manager(DiskSystem::local());
    manager.startMonitoring();
    auto switches = [] {
        long total = 0;
        for (const QString &task :
             QDir(u"/proc/self/task"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
            QFile status(u"/proc/self/task/%1/status"_s.arg(task));
            if (!status.open(QIODevice::ReadOnly))
                continue;
            for (const QByteArray &line : status.readAll().split('\n'))
                if (line.startsWith("voluntary_ctxt_switches:"))
                    total += line.mid(24).trimmed().toLong();
        }
        return total;
    };
    const int seconds = 10;
    for (auto _ : state) {
        const long before = switches();
        QEventLoop loop;
        // This timer ends the wait and is the one wake-up that is the benchmark's own.
        QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
        loop.exec();
        state.counters["wakeups_per_minute"] = double(switches() - before - 1) * 60.0 / seconds;
    }
}
BENCHMARK(BM_IdleWakeupsPerMinute)->Iterations(1)->Unit(benchmark::kSecond);

} // namespace

int main(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(u"vantrelo.disk.info=false"_s);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (mountNamespace().ready)
        umount2(QFile::encodeName(mountNamespace().dir.path()).constData(), MNT_DETACH);
    return 0;
}
