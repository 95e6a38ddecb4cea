#include "LocalCollectServer.h"
#include "analytics/EventTracker.h"
#include "analytics/GoogleAnalytics.h"
#include "analytics/MeasurementUploader.h"
#include "analytics/SystemInfo.h"
#include "tests/support/Wait.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QThread>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using Clock = std::chrono::steady_clock;

namespace {

// The collector runs on its own thread, as a real server would, so that the benchmark thread
// plays the interface thread and never serves anything.
class CollectorThread {
public:
    CollectorThread() {
        m_thread.start();
        m_context.moveToThread(&m_thread);
        QMetaObject::invokeMethod(
            &m_context, [this] { m_server = new LocalCollectServer; },
            Qt::BlockingQueuedConnection);
    }
    ~CollectorThread() {
        QMetaObject::invokeMethod(
            &m_context, [this] { delete m_server; }, Qt::BlockingQueuedConnection);
        m_thread.quit();
        m_thread.wait();
    }
    QUrl endpoint() const { return m_server->endpoint(); }
    int deliveredEvents() const {
        int count = 0;
        QMetaObject::invokeMethod(
            &m_context, [this, &count] { count = int(m_server->deliveredLabels().size()); },
            Qt::BlockingQueuedConnection);
        return count;
    }
    int requests() const {
        int count = 0;
        QMetaObject::invokeMethod(
            &m_context, [this, &count] { count = int(m_server->requests().size()); },
            Qt::BlockingQueuedConnection);
        return count;
    }

private:
    QThread m_thread;
    mutable QObject m_context;
    LocalCollectServer *m_server = nullptr;
};

AnalyticsConfiguration configFor(const CollectorThread &collector, const QTemporaryDir &dir) {
    AnalyticsConfiguration config;
    config.measurementId = u"G-BENCH"_s;
    config.apiSecret = u"bench"_s;
    config.endpoint = collector.endpoint();
    config.queueFilePath = dir.filePath(u"queue"_s);
    config.maxQueuedEvents = 10000;
    return config;
}

double percentile(std::vector<double> samples, double p) {
    if (samples.empty())
        return 0;
    std::sort(samples.begin(), samples.end());
    return samples[std::size_t(p * double(samples.size() - 1))];
}

// One trackEventName call as the interface thread makes it: parameters (kernel version, serial
// read from sysfs), the hand-off to the worker. Per-call times give the median.
void BM_TrackEventName(benchmark::State &state) {
    static CollectorThread collector;
    static QTemporaryDir dir;
    GoogleAnalytics::configure(configFor(collector, dir));
    std::vector<double> micros;
    micros.reserve(std::size_t(state.max_iterations));
    for (auto _ : state) {
        const auto start = Clock::now();
        GoogleAnalytics::trackEventName(u"DiskOperation"_s, u"open"_s, u"ntfs read&write"_s);
        micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    state.counters["median_us"] = percentile(micros, 0.5);
    state.counters["p99_us"] = percentile(micros, 0.99);
    state.counters["max_us"] = percentile(micros, 1.0);
}
BENCHMARK(BM_TrackEventName)->Iterations(5000)->Unit(benchmark::kMicrosecond);

// This machine may have no DMI serial; reading one from a file shows what each event pays where
// it exists (root can read sysfs's product_serial).
void BM_SerialNumberFromFile(benchmark::State &state) {
    QTemporaryDir dir;
    QFile file(dir.filePath(u"product_serial"_s));
    if (!file.open(QIODevice::WriteOnly) || file.write("PF2ABCDE\n") < 0) {
        state.SkipWithError("cannot write the sample serial");
        return;
    }
    file.close();
    for (auto _ : state)
        benchmark::DoNotOptimize(SystemInfo::serialNumber(file.fileName()));
}
BENCHMARK(BM_SerialNumberFromFile)->Unit(benchmark::kMicrosecond);

// 10,000 events tracked in a burst: how long the calling thread was busy (and its longest
// single call), then how long until the collector had every event, batch by batch.
void BM_FlushTenThousandEvents(benchmark::State &state) {
    constexpr int kEvents = 10000;
    for (auto _ : state) {
        CollectorThread collector;
        QTemporaryDir dir;
        auto tracker = std::make_unique<EventTracker>(configFor(collector, dir));
        const EventParameters parameters = GoogleAnalytics::eventParameters(u"open"_s, u"x"_s);
        double longestCall = 0;
        const auto start = Clock::now();
        for (int i = 0; i < kEvents; ++i) {
            const auto callStart = Clock::now();
            tracker->track(u"DiskOperation"_s, parameters);
            longestCall = std::max(
                longestCall,
                std::chrono::duration<double, std::micro>(Clock::now() - callStart).count());
        }
        const auto tracked = Clock::now();
        if (!testsupport::waitUntil([&] { return collector.deliveredEvents() >= kEvents; })) {
            state.SkipWithError("the collector never received every event");
            return;
        }
        const auto delivered = Clock::now();
        state.SetIterationTime(std::chrono::duration<double>(delivered - start).count());
        state.counters["caller_busy_ms"] =
            std::chrono::duration<double, std::milli>(tracked - start).count();
        state.counters["longest_call_us"] = longestCall;
        state.counters["flushed_ms"] =
            std::chrono::duration<double, std::milli>(delivered - start).count();
        state.counters["requests"] = collector.requests();
        tracker.reset();
    }
}
BENCHMARK(BM_FlushTenThousandEvents)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    // Queue-full and retry lines would flood the output; the figures are what matters here.
    QLoggingCategory::setFilterRules(u"vantrelo.analytics=false"_s);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    GoogleAnalytics::shutdown();
    return 0;
}
