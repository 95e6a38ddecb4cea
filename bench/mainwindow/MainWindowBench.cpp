// The main window's figures on the offscreen platform: the first list of 50 volumes, a mount
// reaching the list, a read-only NTFS volume made writable through the built helper, and the
// wake-ups of the idle window. All but the first need root; they run in a private mount
// namespace, so nothing outside this process sees their mounts.
#include "disk/NTDiskManager.h"
#include "tests/support/HelperDaemon.h"
#include "tests/support/LoopImage.h"
#include "tests/support/Udevd.h"
#include "tests/ui/mainwindow/FakeDisks.h"
#include "ui/controls/LLDrakMode.h"
#include "ui/mainwindow/NTMainWindowController.h"
#include "util/InstallPaths.h"

#include <QApplication>
#include <QDir>
#include <QLoggingCategory>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using testsupport::LoopImage;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kListedVolumes = 50;
constexpr int kHangGuardMs = 30000;

bool g_privateMounts = false;

// Runs events until `done` holds, waking only when something arrives; false when the guard ran
// out first.
bool runEventsUntil(const std::function<bool()> &done) {
    bool expired = false;
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, [&expired] { expired = true; });
    guard.start(kHangGuardMs);
    while (!done() && !expired)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return !expired;
}

double seconds(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

double percentile(std::vector<double> values, double fraction) {
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, std::size_t(fraction * double(values.size())))];
}

// One timed round per repetition, so the median and the spread are those of single rounds.
void perRound(benchmark::internal::Benchmark *benchmark) {
    benchmark->UseManualTime()
        ->Iterations(1)
        ->ReportAggregatesOnly()
        ->ComputeStatistics("p90", [](const std::vector<double> &v) { return percentile(v, 0.9); })
        ->ComputeStatistics("max", [](const std::vector<double> &v) {
            return *std::max_element(v.begin(), v.end());
        });
}

// The window made as the application makes it, up with its first list.
std::unique_ptr<NTMainWindowController> loadedWindow(NTDiskManager *manager) {
    auto window = std::make_unique<NTMainWindowController>(manager);
    bool loaded = false;
    QObject::connect(window.get(), &NTMainWindowController::initialListDidLoad, window.get(),
                     [&loaded] { loaded = true; });
    window->showWindow();
    return runEventsUntil([&loaded] { return loaded; }) ? std::move(window) : nullptr;
}

bool skipUnlessPrivateMounts(benchmark::State &state) {
    if (g_privateMounts)
        return false;
    state.SkipWithError(geteuid() == 0 ? "cannot make a private mount namespace"
                                       : "needs root: mounts in a mount namespace of its own");
    return true;
}

// Every time a thread of this process went to sleep, which is as often as one woke up. Threads
// that have ended count too.
long voluntarySwitches() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw;
}

void BM_IdleWindowWakeupsPerMinute(benchmark::State &state) {
    if (skipUnlessPrivateMounts(state))
        return;
    NTDiskManager manager(DiskSystem::local());
    const std::unique_ptr<NTMainWindowController> window = loadedWindow(&manager);
    if (!window) {
        state.SkipWithError("the first list never loaded");
        return;
    }
    // The first paints are done first. What follows is the window left alone, Qt's own
    // housekeeping included: the pixmap cache's flush and the list's idle pool thread ending,
    // each 30 s after its last use.
    QEventLoop settle;
    QTimer::singleShot(1000, &settle, &QEventLoop::quit);
    settle.exec();
    for (auto _ : state) {
        const long before = voluntarySwitches();
        QEventLoop idle;
        // This timer ends the minute and is the one wake-up that is the benchmark's own.
        QTimer::singleShot(60000, Qt::PreciseTimer, &idle, &QEventLoop::quit);
        idle.exec();
        state.counters["wakeups_per_minute"] = double(voluntarySwitches() - before - 1);
    }
}
BENCHMARK(BM_IdleWindowWakeupsPerMinute)->Iterations(1)->Unit(benchmark::kSecond);

void BM_FirstListFiftyVolumes(benchmark::State &state) {
    auto disks = std::make_shared<FakeDisks>();
    for (int i = 0; i < kListedVolumes; ++i)
        disks->add({u"sd%1"_s.arg(i), u"/media/bench/Volume %1"_s.arg(i), u"Volume %1"_s.arg(i),
                    i % 3 == 0 ? u"ext4"_s : u"ntfs"_s, i % 5 != 0, i % 2 == 0});
    NTDiskManager manager(FakeDisks::system(disks));
    for (auto _ : state) {
        const auto start = Clock::now();
        const std::unique_ptr<NTMainWindowController> window = loadedWindow(&manager);
        const auto loaded = Clock::now();
        if (!window) {
            state.SkipWithError("the first list never loaded");
            return;
        }
        state.SetIterationTime(seconds(start, loaded));
        state.counters["volumes"] = double(window->internalDrive()->childArray().size() +
                                           window->externalDrive()->childArray().size());
    }
}
BENCHMARK(BM_FirstListFiftyVolumes)
    ->Apply(perRound)
    ->Repetitions(100)
    ->Unit(benchmark::kMillisecond);

// Passes the manager's reports on to the window and notes when its diskDidMount returned.
class MountClock final : public DiskMountDelegate {
public:
    explicit MountClock(NTMainWindowController &window)
        : m_window(window) {}
    void diskDidMount(const NTDiskDrivePtr &drive) override {
        m_window.diskDidMount(drive);
        shownAt = Clock::now();
        shown = true;
    }
    void diskDidUnMount(const QString &mountPath) override {
        m_window.diskDidUnMount(mountPath);
        gone = true;
    }
    Clock::time_point shownAt;
    bool shown = false;
    bool gone = false;

private:
    NTMainWindowController &m_window;
};

// An ext4 volume on a loop device, to be bound whole at a second folder: the manager lists the
// bind mount as a volume of its own. The window's reports go through the clock.
struct BindSetUp {
    std::unique_ptr<LoopImage> image;
    QByteArray source;
    QByteArray target;
    NTDiskManager manager{DiskSystem::local()};
    std::unique_ptr<NTMainWindowController> window;
    std::unique_ptr<MountClock> clock;
    QString why;

    BindSetUp() {
        image = LoopImage::create(64, &why);
        if (!image || !image->format(image->device(), u"ext4"_s, u"Bench"_s, &why))
            return;
        source = QFile::encodeName(image->mount(image->device(), u"ext4"_s, false, &why));
        target = QFile::encodeName(image->scratchDir() + u"/bound"_s);
        window = loadedWindow(&manager);
        if (source.isEmpty() || !window || !QDir().mkpath(QFile::decodeName(target))) {
            why += u" no ext4 volume or window"_s;
            return;
        }
        clock = std::make_unique<MountClock>(*window);
        manager.setDelegate(clock.get());
    }
    ~BindSetUp() { manager.setDelegate(window.get()); }
};
std::unique_ptr<BindSetUp> g_bind;

void BM_MountToRowOnScreen(benchmark::State &state) {
    if (skipUnlessPrivateMounts(state))
        return;
    if (!g_bind)
        g_bind = std::make_unique<BindSetUp>();
    if (!g_bind->why.isEmpty()) {
        state.SkipWithError(g_bind->why.toStdString().c_str());
        return;
    }
    MountClock &clock = *g_bind->clock;
    for (auto _ : state) {
        clock.shown = clock.gone = false;
        const auto start = Clock::now();
        if (mount(g_bind->source.constData(), g_bind->target.constData(), nullptr, MS_BIND,
                  nullptr) != 0) {
            state.SkipWithError("the bind mount failed");
            return;
        }
        const bool shown = runEventsUntil([&clock] { return clock.shown; });
        state.SetIterationTime(seconds(start, clock.shownAt));
        umount(g_bind->target.constData());
        if (!shown || !runEventsUntil([&clock] { return clock.gone; })) {
            state.SkipWithError("the window never heard of the mount or the unmount");
            return;
        }
    }
}
BENCHMARK(BM_MountToRowOnScreen)->Apply(perRound)->Repetitions(200)->Unit(benchmark::kMicrosecond);

NTDiskDrivePtr listedAt(const NTMainWindowController &window, const QString &path) {
    const NTDiskDriveList &external = window.externalDrive()->childArray();
    const auto found =
        std::find_if(external.cbegin(), external.cend(),
                     [&path](const NTDiskDrivePtr &d) { return d->mountPath() == path; });
    return found == external.cend() ? nullptr : *found;
}

// The window, the real helper on a socket of its own and an NTFS loop image, for the whole run.
struct NtfsSetUp {
    testsupport::Udevd udevd;
    testsupport::HelperDaemon helper;
    std::unique_ptr<LoopImage> image;
    std::unique_ptr<NTDiskManager> manager;
    std::unique_ptr<NTMainWindowController> window;
    QString why;

    NtfsSetUp() {
        why = udevd.start();
        if (why.isEmpty())
            why = helper.start(QStringLiteral(VANTRELO_HELPER_DAEMON),
                               QProcessEnvironment::systemEnvironment(), false);
        if (!why.isEmpty())
            return;
        InstallPaths::setOverride(InstallPaths::Component::HelperSocket, helper.socketPath());
        InstallPaths::setOverride(InstallPaths::Component::HelperExecutable,
                                  QStringLiteral(VANTRELO_HELPER_DAEMON));
        image = LoopImage::create(64, &why);
        if (!image || !image->format(image->device(), u"ntfs"_s, u"Bench"_s, &why))
            return;
        why = testsupport::Udevd::refresh(image->device());
        manager = std::make_unique<NTDiskManager>(DiskSystem::local());
        window = loadedWindow(manager.get());
        if (why.isEmpty() && !window)
            why = u"the first list never loaded"_s;
    }
    ~NtfsSetUp() {
        window.reset();
        image.reset();
        InstallPaths::clearOverrides();
    }
};

std::unique_ptr<NtfsSetUp> g_ntfs;

void BM_ReadOnlyNtfsToWritable(benchmark::State &state) {
    if (skipUnlessPrivateMounts(state))
        return;
    // Made once for every repetition; main() takes it down while the application still runs.
    if (!g_ntfs)
        g_ntfs = std::make_unique<NtfsSetUp>();
    NtfsSetUp &setUp = *g_ntfs;
    if (!setUp.why.isEmpty()) {
        state.SkipWithError(setUp.why.toStdString().c_str());
        return;
    }
    for (auto _ : state) {
        QString why;
        const QString path = setUp.image->mount(setUp.image->device(), u"ntfs"_s, true, &why);
        const auto mounted = Clock::now();
        NTDiskDrivePtr drive;
        const bool writable = !path.isEmpty() && runEventsUntil([&] {
            return bool(drive = listedAt(*setUp.window, path));
        }) && runEventsUntil([&drive] { return drive->isWritable(); });
        state.SetIterationTime(seconds(mounted, Clock::now()));
        if (!writable) {
            state.SkipWithError(path.isEmpty() ? why.toStdString().c_str()
                                               : "the volume never became writable");
            return;
        }
        setUp.image->unmount(path);
        runEventsUntil([&] { return !listedAt(*setUp.window, path); });
    }
}
BENCHMARK(BM_ReadOnlyNtfsToWritable)
    ->Apply(perRound)
    ->Repetitions(7)
    ->Unit(benchmark::kMillisecond);

// The mounts of the root benchmarks stay in this process; made before any thread starts, so
// every thread and child shares them.
bool makeMountsPrivate() {
    return geteuid() == 0 && unshare(CLONE_NEWNS) == 0 &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

} // namespace

int main(int argc, char **argv) {
    g_privateMounts = makeMountsPrivate();
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QLoggingCategory::setFilterRules(u"vantrelo.disk.info=false"_s);
    // The theme notifier asks the portal once; that belongs to start-up, not to any window.
    LLDrakMode::shared();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    g_ntfs.reset();
    g_bind.reset();
    return 0;
}
