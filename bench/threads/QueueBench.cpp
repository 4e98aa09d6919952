// Worker-queue figures: commands served per second when a producer posts in
// bursts, and the latency from posting a client event to the callback.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "base/Clock.h"
#include "threads/ClientCallbackThread.h"
#include "threads/WVCmdThread.h"

namespace {

class CountingThread : public wv::WVCmdThread {
public:
    std::atomic<int64_t> served{0};
    ~CountingThread() override { exit(); }

protected:
    void procCmd(wv::WVThreadCmd&) override { served.fetch_add(1, std::memory_order_release); }
};

void BM_CommandsServedInBursts(benchmark::State& state) {
    const int64_t burst = state.range(0);
    CountingThread worker;
    worker.launch();
    int64_t posted = 0;
    for (auto _ : state) {
        for (int64_t i = 0; i < burst; ++i) worker.sendCmd(wv::WVThreadCmd(2, 1, -1), 7);
        posted += burst;
        while (worker.served.load(std::memory_order_acquire) < posted) std::this_thread::yield();
    }
    state.SetItemsProcessed(posted);
}
BENCHMARK(BM_CommandsServedInBursts)->Arg(100)->Arg(1000)->Arg(10000)->UseRealTime();

class NoEngine : public wv::EngineHooks {
public:
    int32_t playStop(uint32_t) override { return 0; }
};

std::atomic<int64_t> gDeliveredNs{0};
void onEvent(int, int, int, char*, void*) { gDeliveredNs.store(wv::monotonicNs(), std::memory_order_release); }

void BM_EventLatency(benchmark::State& state) {
    NoEngine engine;
    wv::ClientCallbackThread callbacks(&engine);
    callbacks.setCallback(onEvent);
    callbacks.launch();
    std::vector<double> latenciesUs;
    for (auto _ : state) {
        gDeliveredNs.store(0);
        const int64_t posted = wv::monotonicNs();
        callbacks.notify(wv::WVThreadCmd(3, 1, 50), 0);
        int64_t delivered;
        while ((delivered = gDeliveredNs.load(std::memory_order_acquire)) == 0) {
        }
        latenciesUs.push_back((delivered - posted) / 1000.0);
    }
    callbacks.exit();
    std::sort(latenciesUs.begin(), latenciesUs.end());
    if (!latenciesUs.empty()) {
        state.counters["median_us"] = latenciesUs[latenciesUs.size() / 2];
        state.counters["p99_us"] = latenciesUs[latenciesUs.size() * 99 / 100];
    }
}
BENCHMARK(BM_EventLatency)->Iterations(20000)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
