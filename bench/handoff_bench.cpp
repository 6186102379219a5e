// What a hand-off between two threads costs: through a promise and its future, and through a mutex and a
// condition variable alone. One iteration is a round trip, which is two hand-offs on either side. The bare
// side uses its two slots over and over; the other one makes a new promise and future for every hand-off, as
// real requests do.

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "connector/Promise.h"

namespace {

constexpr int kStop = -1;

/// A place for one number on its way to the other thread.
class BareSlot {
public:
    void put(int number) {
        {
            const std::lock_guard lock(mutex_);
            number_ = number;
            full_ = true;
        }
        condition_.notify_all();
    }
    int take() {
        std::unique_lock lock(mutex_);
        condition_.wait(lock, [this] { return full_; });
        full_ = false;
        return number_;
    }

private:
    std::mutex mutex_;
    std::condition_variable condition_;
    int number_ = 0;
    bool full_ = false;
};

void mutexAndCondition(benchmark::State& state) {
    BareSlot ping;
    BareSlot pong;
    std::thread echo([&] {
        for (int number = ping.take(); number != kStop; number = ping.take()) pong.put(number);
    });
    int number = 0;
    for ([[maybe_unused]] auto _ : state) {
        ping.put(++number);
        if (pong.take() != number) state.SkipWithError("wrong answer");
    }
    ping.put(kStop);
    echo.join();
}

struct Pong;

/// Each message carries the promise that the next one in the other direction resolves.
struct Ping {
    int number;
    connector::Promise<Pong> reply;
};
struct Pong {
    int number;
    connector::Promise<Ping> next;
};

void echoPings(connector::Future<Ping> incoming) {
    for (;;) {
        Ping ping = incoming.get();
        if (ping.number == kStop) return;
        connector::Promise<Ping> next;
        incoming = next.getFuture();
        ping.reply.setValue(Pong{ping.number, std::move(next)});
    }
}

void promiseAndFuture(benchmark::State& state) {
    connector::Promise<Ping> outgoing;
    std::thread echo(echoPings, outgoing.getFuture());
    int number = 0;
    for ([[maybe_unused]] auto _ : state) {
        connector::Promise<Pong> reply;
        auto answer = reply.getFuture();
        outgoing.setValue(Ping{++number, std::move(reply)});
        Pong pong = answer.get();
        if (pong.number != number) state.SkipWithError("wrong answer");
        outgoing = std::move(pong.next);
    }
    outgoing.setValue(Ping{kStop, {}});
    echo.join();
}

double fastest(const std::vector<double>& times) { return *std::min_element(times.begin(), times.end()); }

// Alternating runs put both sides under the same conditions; the fastest of each is the one least disturbed.
void compared(benchmark::internal::Benchmark* bench) {
    bench->UseRealTime()->Repetitions(10)->ComputeStatistics("min", fastest)->ReportAggregatesOnly();
}

BENCHMARK(mutexAndCondition)->Apply(compared);
BENCHMARK(promiseAndFuture)->Apply(compared);

}  // namespace

BENCHMARK_MAIN();
