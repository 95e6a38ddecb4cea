// The built vantrelo as a whole process, as a person starts it: from exec until its log says the
// filled volume list is drawn, then its resident memory and its wake-ups while nobody touches it.
// As root the program sees ten extra ext4 volumes, mounted in a private mount namespace that goes
// away with this process; otherwise it lists what the machine has.
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

extern char **environ;

using namespace Qt::StringLiterals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kVolumes = 10;
constexpr auto kListTimeout = std::chrono::seconds(30);
// Long enough for the work that follows the first frame (the accessibility bridge, the tray
// icon's embedding) to end before "idle" is measured.
constexpr auto kSettle = std::chrono::seconds(5);
const std::string kListLine = "Volume list on screen: ";

// One home for every run, so runs after the first are later launches, as in daily use.
QTemporaryDir &scratchHome() {
    static QTemporaryDir home;
    return home;
}

QString volumesFolder() {
    return scratchHome().filePath(u"volumes"_s);
}

// "" when the volumes are mounted, else why not.
QString mountVolumes() {
    if (geteuid() != 0)
        return u"not root: the program lists this machine's own volumes"_s;
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr))
        return u"cannot make a private mount namespace"_s;
    const QString base = volumesFolder();
    QDir().mkpath(base);
    if (mount("none", QFile::encodeName(base).constData(), "tmpfs", 0, nullptr) != 0)
        return u"cannot mount a tmpfs"_s;
    for (int i = 0; i < kVolumes; ++i) {
        const QString image = base + u"/%1.img"_s.arg(i);
        const QString target = base + u"/Volume %1"_s.arg(i);
        QDir().mkpath(target);
        if (QProcess::execute(u"truncate"_s, {u"-s"_s, u"16M"_s, image}) != 0 ||
            QProcess::execute(u"mkfs.ext4"_s,
                              {u"-q"_s, u"-F"_s, u"-L"_s, u"Volume%1"_s.arg(i), image}) != 0 ||
            QProcess::execute(u"mount"_s, {u"-o"_s, u"loop"_s, image, target}) != 0)
            return u"cannot mount ext4 image %1"_s.arg(i);
    }
    return {};
}

std::vector<std::string> childEnvironment() {
    const QString home = scratchHome().path();
    const std::map<std::string, QString> own{{"HOME", home},
                                             {"XDG_CONFIG_HOME", home + u"/config"_s},
                                             {"XDG_DATA_HOME", home + u"/data"_s},
                                             {"XDG_STATE_HOME", home + u"/state"_s},
                                             {"XDG_RUNTIME_DIR", home + u"/runtime"_s},
                                             {"QT_QPA_PLATFORM", u"xcb"_s}};
    QDir().mkpath(own.at("XDG_RUNTIME_DIR"));
    QFile::setPermissions(own.at("XDG_RUNTIME_DIR"),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    std::vector<std::string> environment;
    for (char **entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        if (!own.contains(text.substr(0, text.find('='))))
            environment.push_back(text);
    }
    for (const auto &[name, value] : own)
        environment.push_back(name + '=' + value.toStdString());
    return environment;
}

// The program, started by exec with its log on a pipe, and stopped when this goes away.
class RunningApp {
public:
    RunningApp() {
        int pipeEnds[2];
        if (pipe2(pipeEnds, O_CLOEXEC) != 0)
            return;
        m_log = pipeEnds[0];
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 2);
        std::vector<std::string> environment = childEnvironment();
        std::vector<char *> envp;
        for (std::string &entry : environment)
            envp.push_back(entry.data());
        envp.push_back(nullptr);
        char program[] = VANTRELO_APP_PATH;
        char *argv[] = {program, nullptr};
        m_started = Clock::now();
        if (posix_spawn(&m_pid, program, &actions, nullptr, argv, envp.data()) != 0)
            m_pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(pipeEnds[1]);
    }
    ~RunningApp() {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
        if (m_log >= 0)
            close(m_log);
    }
    RunningApp(const RunningApp &) = delete;
    RunningApp &operator=(const RunningApp &) = delete;

    pid_t pid() const { return m_pid; }

    // Seconds from exec to the log line, and the number of volumes it names; nothing when the
    // program ends or stays silent.
    std::optional<std::pair<double, int>> waitForList() {
        const auto deadline = Clock::now() + kListTimeout;
        std::string text;
        while (m_pid > 0 && Clock::now() < deadline) {
            pollfd readable{m_log, POLLIN, 0};
            if (poll(&readable, 1, 100) <= 0)
                continue;
            char chunk[4096];
            const ssize_t got = read(m_log, chunk, sizeof chunk);
            if (got <= 0)
                return std::nullopt;
            text.append(chunk, size_t(got));
            const size_t at = text.find(kListLine);
            if (at != std::string::npos && text.find('\n', at) != std::string::npos) {
                const std::chrono::duration<double> took = Clock::now() - m_started;
                return std::pair{took.count(), std::atoi(text.c_str() + at + kListLine.size())};
            }
        }
        return std::nullopt;
    }

private:
    pid_t m_pid = -1;
    int m_log = -1;
    Clock::time_point m_started;
};

// Context switches of each thread of the process: every time a thread was woken or preempted.
std::map<QString, long long> contextSwitches(pid_t pid) {
    std::map<QString, long long> byThread;
    const QDir tasks(u"/proc/%1/task"_s.arg(pid));
    for (const QString &tid : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile status(tasks.filePath(tid + u"/status"_s));
        if (!status.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &line : status.readAll().split('\n'))
            if (line.contains("ctxt_switches:"))
                byThread[tid] += line.mid(line.indexOf(':') + 1).trimmed().toLongLong();
    }
    return byThread;
}

double residentMiB(pid_t pid) {
    QFile status(u"/proc/%1/status"_s.arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
    return 0;
}

// Starts the program and waits for its list; skips the benchmark when that fails.
std::optional<std::pair<double, int>> startOrSkip(benchmark::State &state, RunningApp &app) {
    if (qEnvironmentVariableIsEmpty("DISPLAY")) {
        state.SkipWithError("no X server: run under Xvfb, e.g. desktop-session -- bench_app");
        return std::nullopt;
    }
    auto listed = app.waitForList();
    if (!listed)
        state.SkipWithError("vantrelo did not report its list on screen");
    return listed;
}

void BM_StartUntilListDrawn(benchmark::State &state) {
    for (auto _ : state) {
        RunningApp app;
        const auto listed = startOrSkip(state, app);
        if (!listed)
            return;
        state.SetIterationTime(listed->first);
        state.counters["volumes"] = listed->second;
    }
}
BENCHMARK(BM_StartUntilListDrawn)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);

void BM_IdleResidentMemory(benchmark::State &state) {
    for (auto _ : state) {
        RunningApp app;
        const auto listed = startOrSkip(state, app);
        if (!listed)
            return;
        std::this_thread::sleep_for(kSettle);
        state.counters["rss_MiB"] = residentMiB(app.pid());
        state.counters["volumes"] = listed->second;
    }
}
BENCHMARK(BM_IdleResidentMemory)->Unit(benchmark::kSecond)->Iterations(1);

// Wake-ups of all threads over state.range(0) seconds of idling.
void BM_IdleWakeUps(benchmark::State &state) {
    for (auto _ : state) {
        RunningApp app;
        if (!startOrSkip(state, app))
            return;
        std::this_thread::sleep_for(kSettle);
        const auto before = contextSwitches(app.pid());
        std::this_thread::sleep_for(std::chrono::seconds(state.range(0)));
        const auto after = contextSwitches(app.pid());
        long long wakeUps = 0;
        for (const auto &[tid, count] : after)
            wakeUps += count - (before.contains(tid) ? before.at(tid) : 0);
        state.counters["wakeups"] = double(wakeUps);
        state.counters["threads"] = double(after.size());
        state.counters["threads_gone"] =
            double(std::count_if(before.begin(), before.end(),
                                 [&](const auto &entry) { return !after.contains(entry.first); }));
    }
}
BENCHMARK(BM_IdleWakeUps)->Arg(60)->Unit(benchmark::kSecond)->Iterations(1);

} // namespace

int main(int argc, char **argv) {
    // Before any thread exists: a mount namespace cannot be left by a process with threads.
    const QString why = mountVolumes();
    if (!why.isEmpty())
        fprintf(stderr, "%s\n", qPrintable(why));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // Unmounting frees the loop devices; the scratch folder can go after that.
    if (why.isEmpty())
        QProcess::execute(u"umount"_s, {u"-R"_s, volumesFolder()});
    return 0;
}
