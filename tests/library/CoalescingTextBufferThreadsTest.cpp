#include <atomic>
#include <future>
#include <map>
#include <memory>
#include <sstream>

#include "CoalescingTextBufferFixture.h"

namespace connector::interpreter::v1 {
namespace {

/// A buffer whose text is due as soon as it is there.
class ImmediateTextBuffer : public CoalescingTextBuffer {
public:
    ~ImmediateTextBuffer() override { stop(); }

protected:
    TimePoint getCurrentTime() override { return now_ += std::chrono::milliseconds(145); }

private:
    TimePoint now_{};  // guarded by the mutex of the buffer
};

// The text between the quotes of the batches, cut after each ';'. Each piece begins with its stream.
std::map<std::string, int> piecesOf(const std::vector<Batch>& batches) {
    std::map<std::string, int> pieces;
    for (const auto& [json, type] : batches) {
        std::istringstream text(json.substr(1, json.size() - 2));
        for (std::string piece; std::getline(text, piece, ';');) {
            EXPECT_EQ(piece.front() == 'e', type == err) << piece;
            ++pieces[piece];
        }
    }
    return pieces;
}

TEST(CoalescingTextBufferThreadsTest, deliversEveryPieceOnceWhoeverPrintsAndFlushes) {
    constexpr int printers = 4;
    constexpr int pieces = 2000;
    Batches batches;
    {
        ImmediateTextBuffer buffer;
        buffer.setCallback(batches.callback());
        std::atomic<int> printing{printers};
        onThreads(printers + 1, [&](int number) {
            if (number == printers) {
                while (printing > 0) {
                    buffer.flush();
                    buffer.setCallback(batches.callback());
                    buffer.setDduxEnabled(true);
                    buffer.appendDduxDataForSuggestion(u"plot");
                    buffer.clearDduxData();
                }
                return;
            }
            for (int i = 0; i < pieces; ++i) {
                const bool isError = i % 10 == 0;
                const auto text =
                    (isError ? "e" : "o") + std::to_string(number) + "-" + std::to_string(i) + ";";
                buffer.append(std::u16string(text.begin(), text.end()), isError ? err : out);
            }
            --printing;
        });
        buffer.flush();
        // One may still be on its way to a callback; the end of the buffer waits for it.
    }
    const auto delivered = piecesOf(batches.all());
    EXPECT_EQ(delivered.size(), static_cast<std::size_t>(printers * pieces));
    for (const auto& [piece, count] : delivered) EXPECT_EQ(count, 1) << piece;
}

// Each batch would wait for two seconds.
TEST(CoalescingTextBufferThreadsTest, waitsOnceForADeliveryThatHangs) {
    Batches batches;
    Gate delivery;
    ImmediateTextBuffer buffer;
    buffer.deliverInOrder();
    buffer.setCallback([&](auto&&, auto) { delivery.pass(); });
    buffer.append(u"slow", out);
    delivery.awaitEntry();
    buffer.setCallback(batches.callback());
    const auto start = std::chrono::steady_clock::now();
    std::vector<Batch> expected;
    for (int i = 0; i < 10; ++i) {
        const auto type = i % 2 == 0 ? err : out;
        buffer.append(u"other", type);
        buffer.flush();
        expected.emplace_back("\"other\"", type);
        EXPECT_EQ(batches.all(), expected);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(12));
    delivery.open();
}

// A callback that was replaced goes without a lock, even when that happens while it runs.
TEST(CoalescingTextBufferThreadsTest, canBeUsedByWhatItsCallbackHolds) {
    std::promise<void> replaced;
    ImmediateTextBuffer buffer;
    const auto flusher = [&buffer] {
        return std::shared_ptr<void>(nullptr, [&buffer](void*) { buffer.flush(); });
    };
    buffer.setCallback([held = flusher()](auto&&, auto) {});
    buffer.setCallback([held = flusher()](auto&&, auto) {});
    buffer.setCallback([&, held = flusher()](auto&&, auto) {
        buffer.setCallback(nullptr);
        replaced.set_value();
    });
    buffer.append(u"text", out);
    EXPECT_EQ(replaced.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
}

}  // namespace
}  // namespace connector::interpreter::v1
