#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <map>
#include <semaphore>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "frames.h"
#include "link/FrameWriter.h"

namespace links {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t mebibyte = std::size_t{1} << 20;

/// Lets threads end, however a test does.
struct AtEnd {
    std::function<void()> run;
    ~AtEnd() { run(); }
};

class FrameWriterTest : public testing::Test {
public:
    ~FrameWriterTest() override {
        for (const int socket : sockets_) ::close(socket);
    }

protected:
    void closePeer() { ::close(std::exchange(sockets_[1], -1)); }

    static std::array<int, 2> makeSockets() {
        std::array<int, 2> sockets{};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()), 0);
        return sockets;
    }
    /// Reads what the socket holds, without waiting.
    void receive() {
        static thread_local std::string buffer(mebibyte / 4, '\0');
        for (ssize_t got = 1; got > 0;) {
            got = ::recv(sockets_[1], buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (got > 0) {
                reader_.feed({buffer.data(), static_cast<std::size_t>(got)},
                             [this](Frame&& frame) { received_.push_back(std::move(frame)); });
            }
        }
    }
    void receiveAll() {
        for (receive(); asked_ > 0; receive()) {
            --asked_;
            writer_.sendMore();
        }
    }
    Frame text(std::uint64_t id, std::size_t size = 1024) {
        return {.kind = Kind::Publish,
                .id = id,
                .mayBeLost = true,
                .head = "head",
                .body = std::string(size, 'x')};
    }

    std::array<int, 2> sockets_ = makeSockets();
    std::atomic<int> asked_ = 0;
    std::atomic<int> broken_ = 0;
    FrameWriter writer_{sockets_[0], [this] { ++asked_; }, [this] { ++broken_; }};
    FrameReader reader_;
    std::vector<Frame> received_;
};

TEST_F(FrameWriterTest, alternatesLargeResponsesWithWhatComesLaterAndKeepsAllOtherOrder) {
    std::string large(200 * mebibyte, '\0');
    for (std::size_t i = 0; i < large.size(); i += 4096) large[i] = static_cast<char>(i / 4096 % 251);
    constexpr std::uint64_t later = 5000;
    std::uint64_t sent = 0;
    for (; writer_.queuedBytes() == 0; ++sent) writer_.send(text(sent, 100'000));
    writer_.send({.kind = Kind::Response, .id = 1, .head = "large", .body = large});
    writer_.send(text(sent++));
    writer_.send({.kind = Kind::Response, .id = 2, .head = "medium", .body = std::string(mebibyte, 'm')});
    writer_.send({.kind = Kind::Request, .id = 3, .head = "request", .body = std::string(mebibyte, 'r')});
    writer_.send({.kind = Kind::Response, .id = 4, .head = "small"});
    for (std::uint64_t i = 0; i < later; ++i) writer_.send(text(sent++));
    EXPECT_EQ(asked_, 1);
    EXPECT_FALSE(writer_.waitUntilBelow(1, 0ms));
    receiveAll();

    EXPECT_TRUE(writer_.waitUntilBelow(1, 0ms));
    ASSERT_EQ(received_.size(), sent + 4);
    std::vector<std::string> order;
    std::uint64_t next = 0;
    for (const Frame& frame : received_) {
        if (frame.kind != Kind::Publish) {
            order.push_back(frame.head);
            continue;
        }
        ASSERT_EQ(frame.id, next++);
        if (next + later == sent) order.emplace_back("between");
        if (next == sent) order.emplace_back("last");
    }
    EXPECT_EQ(order, (std::vector<std::string>{"between", "request", "small", "medium", "last", "large"}));
    std::erase_if(received_, [](const Frame& frame) { return frame.kind == Kind::Publish; });
    EXPECT_EQ(received_.back().head, "large");
    EXPECT_TRUE(received_.back().body == large);
}

TEST_F(FrameWriterTest, manyLargeResponsesLeaveNoMoreUnfinishedThanTheReaderTakes) {
    for (std::uint64_t id = 0; id < 120; ++id) {
        writer_.send({.kind = Kind::Response, .id = id, .body = std::string(mebibyte + id, 'x')});
    }
    receiveAll();
    ASSERT_EQ(received_.size(), 120U);
    for (const Frame& frame : received_) EXPECT_EQ(frame.body.size(), mebibyte + frame.id);
}

TEST_F(FrameWriterTest, dropsWhatMayBeLostAndBreaksAboveSixtyFourMebibytes) {
    EXPECT_THROW(writer_.send({.kind = Kind::Publish, .head = std::string(65'536, 'h')}), std::length_error);
    writer_.send({.kind = Kind::Request, .body = std::string(100 * mebibyte, 'r')});
    std::size_t taken = 0;
    while (writer_.send(text(0, mebibyte))) ++taken;
    EXPECT_EQ(taken, 64U);
    EXPECT_EQ(broken_, 0);
    const Frame kept{.kind = Kind::State, .body = std::string(mebibyte, 's')};
    for (taken = 0; writer_.send(kept);) ++taken;
    EXPECT_EQ(taken, 63U);
    EXPECT_FALSE(writer_.send(kept));
    EXPECT_EQ(broken_, 1);
    EXPECT_TRUE(writer_.waitUntilBelow(1, 0ms));
}

TEST_F(FrameWriterTest, aBrokenSocketIsToldOnce) {
    FrameWriter idle(
        sockets_[0], [] {}, [this] { ++broken_; });
    while (asked_ == 0) writer_.send(text(0));
    closePeer();
    EXPECT_FALSE(idle.send(text(0)));
    EXPECT_FALSE(idle.send(text(0)));
    EXPECT_EQ(broken_, 1);
    writer_.sendMore();
    writer_.sendMore();
    EXPECT_EQ(broken_, 2);
    EXPECT_EQ(writer_.queuedBytes(), 0U);
}

TEST_F(FrameWriterTest, threadsSendAtOnceEachInItsOrder) {
    constexpr std::uint64_t threads = 3;
    constexpr std::uint64_t count = 3000;
    std::counting_semaphore<> room{0};
    FrameWriter writer(
        sockets_[0], [&] { room.release(); }, [this] { ++broken_; });
    std::atomic<bool> isOver = false;
    std::jthread pump([&] {
        while (room.acquire(), !isOver) {
            pollfd waited{.fd = sockets_[0], .events = POLLOUT, .revents = 0};
            ::poll(&waited, 1, -1);
            writer.sendMore();
        }
    });
    std::vector<std::jthread> senders;
    for (std::uint64_t id = 0; id < threads; ++id) {
        senders.emplace_back([&, id] {
            for (std::uint64_t i = 0; i < count; ++i) {
                Frame frame = text(id, i * 37 % 3000);
                frame.head = std::to_string(i);
                writer.send(std::move(frame));
                if (i % 100 == 0) {
                    writer.send(
                        {.kind = Kind::Response, .id = id * count + i, .body = std::string(mebibyte, 'r')});
                }
                EXPECT_TRUE(writer.waitUntilBelow(mebibyte, 1min));
            }
        });
    }
    const AtEnd end{[&] {
        isOver = true;
        room.release();
        writer.close();
        ::shutdown(sockets_[0], SHUT_RDWR);  // the pump may wait for room
    }};
    while (received_.size() < threads * (count + count / 100)) {
        pollfd waited{.fd = sockets_[1], .events = POLLIN, .revents = 0};
        ASSERT_EQ(::poll(&waited, 1, 60'000), 1);
        receive();
    }
    std::map<std::uint64_t, std::uint64_t> next;
    for (const Frame& frame : received_) {
        if (frame.kind == Kind::Response) continue;
        ASSERT_EQ(frame.head, std::to_string(next[frame.id]));
        ASSERT_EQ(frame.body.size(), next[frame.id]++ * 37 % 3000);
    }
    EXPECT_EQ(broken_, 0);
}

}  // namespace
}  // namespace links
