#include <filesystem>
#include <future>
#include <thread>

#include <gmock/gmock.h>
#include <unistd.h>

#include "jupyter/zmq/SocketThread.h"

#ifdef __SANITIZE_THREAD__
// How libzmq, which is not built with the sanitizer, hands sockets to its own thread cannot be seen.
extern "C" const char* __tsan_default_suppressions() { return "race:libzmq.so"; }
#endif

namespace {

using namespace jupyter;
using namespace std::chrono_literals;

class Recorder : public SocketUser {
public:
    Recorder(std::atomic<int>& signals, std::promise<void>& gone) : signals_(signals), gone_(gone) {}
    ~Recorder() override { gone_.set_value(); }
    void receive(Message) override {}
    void subscribed() override {}
    void roomIsBack() override {}
    void raised(int signal) override { signals_ |= 1 << signal; }
    void failed(const std::string&) override {}

private:
    std::atomic<int>& signals_;
    std::promise<void>& gone_;
};

// Whoever posts may come at the moment at which the thread has just looked.
TEST(SocketThreadTest, runsEverythingThatIsPostedInItsOrderUntilItStops) {
    std::atomic<int> signals{0};
    std::promise<void> gone;
    auto isGone = gone.get_future();
    SocketThread sockets(ConnectionFile{});
    EXPECT_NE(sockets.file().shellPort, 0);
    sockets.start([&] { return std::make_unique<Recorder>(signals, gone); });
    std::vector<int> last(4, 0);
    std::atomic<int> wrong{0}, late{0};
    {
        std::vector<std::jthread> posters;
        for (int poster = 0; poster < 4; ++poster) {
            posters.emplace_back([&, poster] {
                for (int i = 1; i <= 2'000; ++i) {
                    sockets.post([&, poster, i] {
                        if (std::exchange(last.at(poster), i) != i - 1) ++wrong;
                    });
                    if (i % 100 == 0) sockets.postAfter(1ms, [&] { ++late; });
                    sockets.raise(poster + 1);
                }
            });
        }
    }
    std::promise<void> done;
    sockets.postAfter(50ms, [&] { done.set_value(); });
    ASSERT_EQ(done.get_future().wait_for(60s), std::future_status::ready);
    EXPECT_THAT(last, testing::Each(2'000));
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(late, 80);
    EXPECT_EQ(signals, 0b11110);
    sockets.stop();
    EXPECT_EQ(isGone.wait_for(0s), std::future_status::ready);
    sockets.post([&] { ++wrong; });
}

TEST(SocketThreadTest, takesNoAddressFromAnotherKernel) {
    const auto folder = std::filesystem::temp_directory_path() / ("ipc-" + std::to_string(::getpid()));
    std::filesystem::create_directory(folder);
    for (const ConnectionFile& file :
         {ConnectionFile{}, ConnectionFile{.transport = "ipc", .ip = (folder / "kernel").string()}}) {
        const SocketThread first(file);
        const SocketThread second(file);
        EXPECT_NE(first.file().iopubPort, second.file().iopubPort);
        if (file.transport == "tcp") {
            EXPECT_THROW(SocketThread(first.file()), std::runtime_error);
        }
    }
    std::filesystem::remove_all(folder);
}

}  // namespace
