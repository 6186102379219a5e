// The link between two processes: a round trip by size, also on control while main is full, and a stream of 1
// KiB frames.

#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>

#include <benchmark/benchmark.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "link/FrameReader.h"
#include "link/FrameWriter.h"

namespace {

using links::Frame;
using links::Kind;

constexpr std::size_t streamBytes = 50'000'000;
constexpr std::size_t lineBytes = 1024;

/// One end of a socket, with a thread that waits for room in it.
class End {
public:
    explicit End(int socket) : socket_(socket) {}

    void send(Frame frame) { writer_.send(std::move(frame)); }
    void waitForPeer() {
        while (!writer_.waitUntilBelow(std::size_t{1} << 20, std::chrono::seconds(10))) continue;
    }

    /// Reads until `take` returns false or the socket ends.
    template <class Take>
    void read(const Take& take) {
        bool goesOn = true;
        while (goesOn) {
            const ssize_t got = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
            if (got <= 0) std::_Exit(got == 0 ? 0 : 1);
            reader_.feed({buffer_.data(), static_cast<std::size_t>(got)},
                         [&](Frame&& frame) { goesOn = take(std::move(frame)) && goesOn; });
        }
    }

private:
    const int socket_;
    std::string buffer_ = std::string(std::size_t{256} << 10, '\0');
    std::counting_semaphore<> room_{0};
    links::FrameReader reader_;
    links::FrameWriter writer_{socket_, [this] { room_.release(); }, [] { std::_Exit(0); }};
    std::jthread pump_{[this](const std::stop_token& token) {
        while (!token.stop_requested()) {
            room_.acquire();
            pollfd waited{.fd = socket_, .events = POLLOUT, .revents = 0};
            ::poll(&waited, 1, -1);
            writer_.sendMore();
        }
    }};
};

/// Answers each Request, and each Listen with a stream of that many frames and a NoticesEnd.
[[noreturn]] void answer(int socket) {
    End end(socket);
    end.read([&](Frame&& frame) {
        if (frame.kind == Kind::Listen) {
            for (std::uint64_t i = 0; i < frame.id; ++i) {
                end.send({.kind = Kind::Publish,
                          .mayBeLost = true,
                          .head = "channel",
                          .body = std::string(lineBytes, 'x')});
                end.waitForPeer();
            }
            end.send({.kind = Kind::NoticesEnd});
        } else {
            frame.kind = Kind::Response;
            end.send(std::move(frame));
        }
        return true;
    });
    std::abort();
}

/// A process of its own at the other ends of two sockets.
struct Links {
    Links() {
        std::array<int, 2> mains{};
        std::array<int, 2> controls{};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, mains.data()) != 0 ||
            ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, controls.data()) != 0) {
            std::abort();
        }
        if (::fork() == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            std::thread([&] { answer(controls[1]); }).detach();
            answer(mains[1]);
        }
        ::close(mains[1]);
        ::close(controls[1]);
        main = new End(mains[0]);
        control = new End(controls[0]);
    }

    // Live as long as the program: their threads do not end.
    End* main;
    End* control;
};

Links& links_() {
    static Links all;
    return all;
}

void roundTrip(End& end, std::string body) {
    end.send({.kind = Kind::Request, .id = 1, .head = "connector/v1/Eval", .body = std::move(body)});
    end.read([](Frame&&) { return false; });
}

void BM_RoundTrip(benchmark::State& state) {
    const std::string body(static_cast<std::size_t>(state.range(0)), 'x');
    for (auto _ : state) roundTrip(*links_().main, body);
}
BENCHMARK(BM_RoundTrip)->Arg(64)->Arg(1024)->Arg(65536)->UseRealTime();

void readStream(End& end) {
    end.read([](Frame&& frame) { return frame.kind != Kind::NoticesEnd; });
}

void BM_Stream(benchmark::State& state) {
    for (auto _ : state) {
        links_().main->send({.kind = Kind::Listen, .id = streamBytes / lineBytes});
        readStream(*links_().main);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(streamBytes));
}
BENCHMARK(BM_Stream)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_ControlWhileMainIsFull(benchmark::State& state) {
    std::jthread reader([](const std::stop_token& token) {
        while (!token.stop_requested()) {
            links_().main->send({.kind = Kind::Listen, .id = streamBytes / lineBytes});
            readStream(*links_().main);
        }
    });
    for (auto _ : state) roundTrip(*links_().control, {});
}
BENCHMARK(BM_ControlWhileMainIsFull)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    links_();  // forks before there are threads
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::_Exit(0);
}
