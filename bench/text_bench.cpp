#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>

#include "connector/interpreter/v1/AsyncEvalStreamBuf.h"
#include "connector/interpreter/v1/CoalescingTextBuffer.h"
#include "connector/json/escape.h"
#include "fl/i18n/text.h"

// The way of printed text into a batch, beside a bare copy of the same text. Rates are in bytes of the UTF-8
// that comes out.

namespace {

using connector::interpreter::v1::AsyncEvalStreamBuf;
using connector::interpreter::v1::CoalescingTextBuffer;

std::u16string repeated(std::u16string_view piece, std::size_t units) {
    std::u16string text;
    while (text.size() < units) text += piece;
    text.resize(units);
    return text;
}

std::u16string asciiText(std::size_t units) {
    return repeated(u"The quick brown fox jumps over the lazy dog, 0123456789 times. ", units);
}

std::u16string mixedText(std::size_t units) {
    return repeated(
        u"<td class=\"größe\">déjà vu & naïve</td>\t\u6570\u5024\u8A08\u7B97\u306E\u7D50\u679C"
        u"\U0001F600\U0001F680 x = [1.5, 2.25]; y = 'z'\n",
        units);
}

void reportBytes(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

std::size_t escapedSize(std::u16string_view text) {
    connector::common::DataBuffer out;
    connector::json::appendEscaped(out, text);
    return out.size();
}

// At its best: between the same two places.
void memcpyAscii(benchmark::State& state) {
    const std::string text = fl::i18n::to_string(asciiText(static_cast<std::size_t>(state.range())));
    std::vector<char> to(text.size());
    std::size_t count = text.size();
    for (auto _ : state) {
        benchmark::DoNotOptimize(count);  // a bound known to the compiler would give an inlined, slower copy
        std::memcpy(to.data(), text.data(), count);
        benchmark::ClobberMemory();
    }
    reportBytes(state, text.size());
}
BENCHMARK(memcpyAscii)->Arg(80)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 20);

// Pieces go one behind another until a batch is this long. Units: bytes.
constexpr std::size_t batchSize = 1 << 20;

void appendText(benchmark::State& state, const std::u16string& text) {
    CoalescingTextBuffer buffer;
    const std::size_t pieceSize = escapedSize(text);
    std::size_t size = 0;
    for (auto _ : state) {
        buffer.append(text.data(), text.size(), nmutil::io::STANDARD_OUTPUT);
        size += pieceSize;
        if (size >= batchSize) {
            buffer.clear();
            size = 0;
        }
    }
    reportBytes(state, pieceSize);
}
void appendAscii(benchmark::State& state) {
    appendText(state, asciiText(static_cast<std::size_t>(state.range())));
}
BENCHMARK(appendAscii)->Arg(80)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 20);
void appendMixed(benchmark::State& state) {
    appendText(state, mixedText(static_cast<std::size_t>(state.range())));
}
BENCHMARK(appendMixed)->Arg(80)->Arg(1 << 10)->Arg(1 << 16);

// The escaper alone, on UTF-8.
void escapeUtf8(benchmark::State& state, const std::string& text) {
    connector::common::DataBuffer out;
    for (auto _ : state) {
        out.clear();
        connector::json::appendEscaped(out, text);
        benchmark::ClobberMemory();
    }
    reportBytes(state, out.size());
}
void escapeUtf8Ascii(benchmark::State& state) { escapeUtf8(state, fl::i18n::to_string(asciiText(1 << 16))); }
BENCHMARK(escapeUtf8Ascii);
void escapeUtf8Mixed(benchmark::State& state) { escapeUtf8(state, fl::i18n::to_string(mixedText(1 << 16))); }
BENCHMARK(escapeUtf8Mixed);

// The conversion alone, which telemetry and the test log need beside.
void toUtf8(benchmark::State& state, const std::u16string& text) {
    std::size_t size = 0;
    for (auto _ : state) {
        const std::string utf8 = fl::i18n::to_string(text);
        size = utf8.size();
        benchmark::DoNotOptimize(utf8.data());
    }
    reportBytes(state, size);
}
void toUtf8Ascii(benchmark::State& state) { toUtf8(state, asciiText(1 << 16)); }
BENCHMARK(toUtf8Ascii);
void toUtf8Mixed(benchmark::State& state) { toUtf8(state, mixedText(1 << 16)); }
BENCHMARK(toUtf8Mixed);

// A line of 80 characters through the stream buffer, with batches that leave; a thousand lines are 80 KB.
void lineOf80(benchmark::State& state) {
    CoalescingTextBuffer buffer;
    std::size_t delivered = 0;
    buffer.setCallback([&](connector::common::DataBuffer&& batch, nmutil::io::StreamTypeEnum) {
        delivered += batch.size();
    });
    buffer.setDduxEnabled(state.range() != 0);
    AsyncEvalStreamBuf stream(buffer, nmutil::io::STANDARD_OUTPUT);
    const std::u16string line = asciiText(79) + u"\n";
    int lines = 0;
    for (auto _ : state) {
        stream.sputn(line.data(), static_cast<std::streamsize>(line.size()));
        if (++lines % 1000 == 0) buffer.flush();
    }
    benchmark::DoNotOptimize(delivered);
    reportBytes(state, escapedSize(line));
}
BENCHMARK(lineOf80)->ArgName("telemetry")->Arg(0)->Arg(1);

}  // namespace

BENCHMARK_MAIN();
