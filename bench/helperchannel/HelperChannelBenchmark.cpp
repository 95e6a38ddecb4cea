#include "StandInHelper.h"
#include "helperclient/NTCommandHelper.h"
#include "util/InstallPaths.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <semaphore>
#include <vector>

namespace {

struct Rig {
    StandInHelper server;
    std::unique_ptr<NTCommandHelper> helper;

    Rig() {
        if (!server.listen())
            qFatal("stand-in helper cannot listen");
        InstallPaths::setOverride(InstallPaths::Component::HelperSocket, server.socketPath());
        helper = std::make_unique<NTCommandHelper>();
    }
};

// One code 7 command at a time: the latency a caller sees from send to reply handler.
void BM_RoundTripVersion(benchmark::State &state) {
    Rig rig;
    std::binary_semaphore answered(0);
    const auto send = [&] {
        rig.helper->sendCommand(7, {}, [&](const wire::ReplyDictionary &) { answered.release(); });
        answered.acquire();
    };
    send(); // connect outside the measurement
    std::vector<double> micros;
    micros.reserve(100000);
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        send();
        micros.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
    }
    std::sort(micros.begin(), micros.end());
    state.counters["median_us"] = micros[micros.size() / 2];
    state.counters["p99_us"] = micros[std::min(micros.size() - 1, micros.size() * 99 / 100)];
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RoundTripVersion)->UseRealTime()->MinTime(3.0);

// Eight commands kept in flight: how many the channel and the socket carry per second.
void BM_VersionEightInFlight(benchmark::State &state) {
    Rig rig;
    constexpr int kInFlight = 8;
    std::counting_semaphore<kInFlight> slots(kInFlight);
    for (auto _ : state) {
        slots.acquire();
        rig.helper->sendCommand(7, {}, [&](const wire::ReplyDictionary &) { slots.release(); });
    }
    for (int i = 0; i < kInFlight; ++i)
        slots.acquire();
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_VersionEightInFlight)->UseRealTime()->MinTime(3.0);

} // namespace

int main(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
