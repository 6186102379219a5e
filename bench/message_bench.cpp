// What a publish costs the publisher: to client sessions, with room in their queues and with none, and to a
// subscriber in the process. One iteration is one publish; items are deliveries. Queues are emptied outside
// the measured time.

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "messages/LocalMessageService.h"

namespace {

using connector::common::DataBuffer;
using messages::ClientSession;
using messages::LocalMessageService;

const std::string kChannel = "/eval/response/output";

DataBuffer kibibyte() { return DataBuffer('"' + std::string(1'022, 'x') + '"'); }

std::vector<std::shared_ptr<ClientSession>> openSessions(LocalMessageService& service, std::int64_t count,
                                                         std::size_t queueBytes) {
    std::vector<std::shared_ptr<ClientSession>> sessions;
    for (std::int64_t i = 0; i < count; ++i) {
        sessions.push_back(service.openSession({.queueBytes = queueBytes}));
        sessions.back()->subscribe("/eval/response/**");
        sessions.back()->subscribe("/eventmgr/0/tag" + std::to_string(i));
    }
    return sessions;
}

void publishToSessions(benchmark::State& state) {
    constexpr int publishesBetweenTakes = 1'000;
    LocalMessageService service;
    const auto sessions = openSessions(service, state.range(0), std::size_t{8} << 20);
    const auto data = kibibyte();
    int published = 0;
    for (auto _ : state) {
        service.publish(kChannel, data);
        if (++published < publishesBetweenTakes) continue;
        state.PauseTiming();
        published = 0;
        for (const auto& session : sessions) session->take(SIZE_MAX, std::chrono::milliseconds(0));
        state.ResumeTiming();
    }
    if (service.metrics().droppedMessages > 0) state.SkipWithError("a queue was full");
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(publishToSessions)->Arg(1)->Arg(100)->Arg(1'000);

void publishToFullSessions(benchmark::State& state) {
    LocalMessageService service({.now = [] { return std::chrono::steady_clock::time_point(); }});
    const auto sessions = openSessions(service, state.range(0), std::size_t{1} << 16);
    const auto data = kibibyte();
    for (int i = 0; i < 100; ++i) service.publish(kChannel, data);
    for (auto _ : state) service.publish(kChannel, data);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(publishToFullSessions)->Arg(1)->Arg(1'000);

void publishToSubscriber(benchmark::State& state) {
    LocalMessageService service;
    std::uint64_t bytes = 0;
    const auto token = service.subscribe(
        kChannel,
        [&](const connector::message_service::JsonMessage& message) { bytes += message.data.size(); });
    const auto data = kibibyte();
    for (auto _ : state) service.publish(kChannel, data);
    benchmark::DoNotOptimize(bytes);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(publishToSubscriber);

}  // namespace

BENCHMARK_MAIN();
