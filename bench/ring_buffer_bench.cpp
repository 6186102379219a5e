#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

#include "connector/interpreter/ConnectorCmdWinBuffer.h"

// The capturing buffer beside a bare copy of the same pieces into a ring of the same size.

namespace {

constexpr std::size_t pieceSize = 512;  // code units: 1 KiB
constexpr std::size_t ringSize = connector::interpreter::ConnectorCmdWinBuffer::defaultSize;

void reportBytes(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(pieceSize * sizeof(char16_t)));
}

void captureBuffer(benchmark::State& state) {
    const std::vector<char16_t> piece(pieceSize, u'x');
    connector::interpreter::ConnectorCmdWinBuffer buffer(ringSize);
    for (auto _ : state) {
        buffer.sputn(piece.data(), static_cast<std::streamsize>(pieceSize));
        benchmark::ClobberMemory();
    }
    reportBytes(state);
}
BENCHMARK(captureBuffer);

void memcpyRing(benchmark::State& state) {
    const std::vector<char16_t> piece(pieceSize, u'x');
    std::vector<char16_t> ring(ringSize);
    std::size_t position = 0;
    std::size_t count = pieceSize;
    for (auto _ : state) {
        benchmark::DoNotOptimize(count);  // a bound known to the compiler would give an inlined, slower copy
        const std::size_t first = std::min(count, ringSize - position);
        std::memcpy(ring.data() + position, piece.data(), first * sizeof(char16_t));
        if (first < count) {
            std::memcpy(ring.data(), piece.data() + first, (count - first) * sizeof(char16_t));
            position = count - first;
        } else {
            position += first;
        }
        benchmark::DoNotOptimize(ring.data());
        benchmark::ClobberMemory();
    }
    reportBytes(state);
}
BENCHMARK(memcpyRing);

}  // namespace

BENCHMARK_MAIN();
