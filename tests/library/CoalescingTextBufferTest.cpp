#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include "CoalescingTextBufferFixture.h"
#include "support/LogRecords.h"

namespace connector::interpreter::v1 {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t age = 1450000;  // 145 ms

class CoalescingTextBufferTest : public testing::Test {
protected:
    CoalescingTextBufferTest() { buffer_.setCallback(batches_.callback()); }

    void print(std::u16string text, nmutil::io::StreamTypeEnum type = out) {
        buffer_.append(std::move(text), type);
    }

    LogRecords log_{"connector::interpreter::async"};
    Batches batches_;
    ManualTextBuffer buffer_;
};

TEST_F(CoalescingTextBufferTest, deliversABatchWhenItsFirstPieceIs145MillisecondsOld) {
    print(u"a");
    buffer_.setTime(age / 2);
    print(u"b");
    buffer_.setTime(age - 1);
    buffer_.awaitLook();
    EXPECT_THAT(batches_.all(), IsEmpty());
    buffer_.setTime(age);
    EXPECT_THAT(batches_.await(1), ElementsAre(Batch("\"ab\"", out)));
}

TEST_F(CoalescingTextBufferTest, measuresTheAgeOfEachBatchAnew) {
    const std::vector<std::function<void()>> ends{[this] { buffer_.flush(); }, [this] { buffer_.clear(); },
                                                  [this] {
                                                      buffer_.setTime(age);
                                                      batches_.await(2);
                                                  }};
    for (const auto& end : ends) {
        buffer_.setTime(0);
        print(u"first");
        end();
        const std::size_t before = batches_.all().size();
        buffer_.setTime(age);
        print(u"next");
        buffer_.setTime(2 * age - 1);
        buffer_.awaitLook();
        EXPECT_EQ(batches_.all().size(), before);
        buffer_.clear();
    }
}

TEST_F(CoalescingTextBufferTest, deliversTheTextOfOneStreamBeforeThatOfTheOther) {
    print(u"output");
    print(u"error", err);
    EXPECT_THAT(batches_.all(), ElementsAre(Batch("\"output\"", out)));
    print(u" more", err);
    print(u"output again");
    buffer_.flush();
    EXPECT_THAT(batches_.all(), ElementsAre(Batch("\"output\"", out), Batch("\"error more\"", err),
                                            Batch("\"output again\"", out)));
}

TEST_F(CoalescingTextBufferTest, deliversOnceBeforeOtherTextWhateverTheCallbackPrints) {
    const auto record = batches_.callback();
    buffer_.setCallback([&](auto&& batch, auto type) {
        record(std::move(batch), type);
        print(u"again ", type);
    });
    print(u"output");
    print(u"error", err);
    EXPECT_THAT(batches_.all(), ElementsAre(Batch("\"output\"", out)));
    buffer_.flush();
    EXPECT_EQ(batches_.all().back(), Batch("\"again error\"", err));
}

TEST_F(CoalescingTextBufferTest, deliversEscapedText) {
    const std::u16string text = u"x<\t\"\u00E9\U0001F600\xD83D";
    buffer_.append(text.data(), 3, out);
    buffer_.append(text.data() + 3, text.size() - 3, out);
    buffer_.flush();
    EXPECT_THAT(batches_.all(),
                ElementsAre(Batch("\"x\\u003c\\t\\\"\xC3\xA9\xF0\x9F\x98\x80\xEF\xBF\xBD\"", out)));
}

TEST_F(CoalescingTextBufferTest, deliversInAStorageOfTheExactSize) {
    std::size_t capacity = 0;
    buffer_.setCallback([&](auto&& batch, auto) { capacity = batch.capacity(); });
    print(u"abc");
    buffer_.flush();
    EXPECT_EQ(capacity, 5U);
}

TEST_F(CoalescingTextBufferTest, deliversNothingWhenNothingIsPending) {
    buffer_.flush();
    print(u"dropped");
    buffer_.clear();
    buffer_.flush();
    EXPECT_THAT(batches_.all(), IsEmpty());
}

TEST_F(CoalescingTextBufferTest, takesEmptyTextForNothing) {
    buffer_.setDduxEnabled(true);
    print(u"output");
    print(u"", err);
    EXPECT_THAT(batches_.all(), IsEmpty());
    buffer_.append(nullptr, 0, err);
    print(u".");
    buffer_.flush();
    EXPECT_THAT(batches_.all(), ElementsAre(Batch("\"output.\"", out)));
    EXPECT_EQ(buffer_.getDduxData(), "output.");
    // No batch has begun: text that comes later is not older for it.
    print(u"");
    buffer_.setTime(age);
    print(u"later");
    buffer_.awaitLook();
    EXPECT_EQ(batches_.all().size(), 1U);
}

TEST_F(CoalescingTextBufferTest, keepsTextUntilThereIsACallback) {
    buffer_.setCallback(nullptr);
    print(u"output");
    buffer_.setTime(age);
    buffer_.awaitLook();
    buffer_.setCallback(batches_.callback());
    EXPECT_THAT(batches_.await(1), ElementsAre(Batch("\"output\"", out)));
}

TEST_F(CoalescingTextBufferTest, takesTextForDueThatCouldNotBeFlushed) {
    buffer_.setCallback(nullptr);
    print(u"output");
    buffer_.flush();
    print(u" more");
    buffer_.setCallback(batches_.callback());
    EXPECT_THAT(batches_.await(1), ElementsAre(Batch("\"output more\"", out)));
}

TEST_F(CoalescingTextBufferTest, deliversWhatWasKeptAsTheLastStream) {
    buffer_.setCallback(nullptr);
    print(u"output ");
    print(u"error", err);
    buffer_.setCallback(batches_.callback());
    buffer_.flush();
    EXPECT_THAT(batches_.all(), ElementsAre(Batch("\"output error\"", err)));
}

TEST_F(CoalescingTextBufferTest, goesOnAfterACallbackThatThrows) {
    buffer_.setCallback([](auto&&, auto) { throw std::runtime_error("no client"); });
    print(u"lost");
    buffer_.flush();
    EXPECT_EQ(log_.count("error: Caught exception in Coalescer callback:no client"), 1);
    buffer_.setCallback([deliver = batches_.callback()](common::DataBuffer&& batch, auto type) {
        deliver(std::move(batch), type);
        throw 7;
    });
    print(u"by the thread");
    buffer_.setTime(age);
    batches_.await(1);
    print(u"by a flush");
    buffer_.flush();
    EXPECT_THAT(batches_.all(), ElementsAre(Batch("\"by the thread\"", out), Batch("\"by a flush\"", out)));
    EXPECT_GE(log_.count("error: Caught unknown exception in Coalescer callback"), 1);
}

TEST_F(CoalescingTextBufferTest, canBeUsedByItsCallback) {
    buffer_.setDduxEnabled(true);
    std::string kept;
    buffer_.setCallback([&, deliver = batches_.callback()](common::DataBuffer&& batch, auto type) {
        if (batches_.all().empty()) {
            print(u"nested");
            buffer_.setCallback(batches_.callback());
            buffer_.flush();
        }
        kept = buffer_.getDduxData();
        deliver(std::move(batch), type);
    });
    print(u"outer ");
    buffer_.flush();
    EXPECT_EQ(kept, "outer nested");
    EXPECT_THAT(batches_.all(), ElementsAre(Batch("\"nested\"", out), Batch("\"outer \"", out)));
}

TEST_F(CoalescingTextBufferTest, deliversNothingAfterItsEnd) {
    {
        ManualTextBuffer ending;
        ending.setCallback(batches_.callback());
        ending.append(u"pending", out);
    }
    EXPECT_THAT(batches_.all(), IsEmpty());
}

TEST(CoalescingTextBufferClockTest, deliversOnItsOwnByTheClockOfTheSystem) {
    Batches batches;
    CoalescingTextBuffer buffer;
    buffer.setCallback(batches.callback());
    const auto before = std::chrono::steady_clock::now();
    buffer.append(u"text", out);
    EXPECT_THAT(batches.await(1), ElementsAre(Batch("\"text\"", out)));
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(140));
}

struct DduxCase {
    std::string name;
    std::vector<std::u16string> printed;
    std::string kept;
};
class CoalescingTextBufferDduxTest : public CoalescingTextBufferTest,
                                     public testing::WithParamInterface<DduxCase> {};

TEST_P(CoalescingTextBufferDduxTest, keepsWhatFitsIn) {
    buffer_.setDduxEnabled(true);
    for (const auto& text : GetParam().printed) print(text);
    buffer_.flush();
    buffer_.clear();
    EXPECT_EQ(buffer_.getDduxData(), GetParam().kept);
    buffer_.clearDduxData();
    print(u"next");
    EXPECT_EQ(buffer_.getDduxData(), "next");
}

INSTANTIATE_TEST_SUITE_P(
    Texts, CoalescingTextBufferDduxTest,
    testing::Values(
        DduxCase{"Raw", {u"<a>\n", u"\u00E9"}, "<a>\n\xC3\xA9"},
        DduxCase{"UpToTheLimit", {std::u16string(44099, u'a'), u"b"}, std::string(44099, 'a') + "b"},
        DduxCase{"OneTooLong", {std::u16string(44101, u'a')}, ""},
        DduxCase{"DroppedWhole",
                 {std::u16string(44000, u'a'), std::u16string(101, u'b'), u"c"},
                 std::string(44000, 'a') + "c"},
        DduxCase{"LimitInBytes", {std::u16string(44099, u'a'), u"\u00E9"}, std::string(44099, 'a')}),
    [](const auto& info) { return info.param.name; });

TEST_F(CoalescingTextBufferTest, keepsNothingForTelemetryThatIsOff) {
    print(u"text");
    buffer_.appendDduxDataForSuggestion(u"plot");
    EXPECT_EQ(buffer_.getDduxData(), "");
    buffer_.setDduxEnabled(true);
    print(u"kept");
    buffer_.setDduxEnabled(false);
    print(u"text");
    EXPECT_EQ(buffer_.getDduxData(), "kept");
}

TEST_F(CoalescingTextBufferTest, keepsSuggestionsAsTheyWereShown) {
    buffer_.setDduxEnabled(true);
    print(u"x");
    buffer_.appendDduxDataForSuggestion(u"\u00E9<");
    EXPECT_EQ(buffer_.getDduxData(), "xDid you mean: \xC3\xA9< ?");
    buffer_.flush();
    EXPECT_THAT(batches_.all(), ElementsAre(Batch("\"x\"", out)));
}

/// With a test log at `path` for the buffers made in its scope.
class TestLogPath {
public:
    explicit TestLogPath(const std::string& path) { ::setenv(variable, path.c_str(), 1); }
    ~TestLogPath() { ::unsetenv(variable); }
    TestLogPath(const TestLogPath&) = delete;
    TestLogPath& operator=(const TestLogPath&) = delete;

private:
    static constexpr const char* variable = "NUFULLSTACK_TEST_CONTAINER_LOG";
};

/// Lets no file grow past `bytes` while it is in scope: writing fails.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit before_{};
    void (*handler_)(int);
};

class CoalescingTextBufferLogTest : public CoalescingTextBufferTest {
protected:
    ~CoalescingTextBufferLogTest() override { ::unlink(path_.c_str()); }

    std::string written() const {
        std::stringstream content;
        content << std::ifstream(path_).rdbuf();
        return content.str();
    }
    std::vector<Batch> printWithLogAt(const std::string& path) {
        const TestLogPath setting(path);
        ManualTextBuffer logged;
        logged.setCallback(batches_.callback());
        logged.append(u"text", out);
        logged.flush();
        return batches_.all();
    }

    const std::string path_ = testing::TempDir() + "text_buffer_log_" + std::to_string(::getpid());
};

TEST_F(CoalescingTextBufferLogTest, appendsEveryPieceToTheFileAsItComes) {
    std::ofstream(path_) << "before\n";
    const TestLogPath setting(path_);
    ManualTextBuffer logged;
    logged.append(u"out<\n", out);
    EXPECT_EQ(written(), "before\nout<\n");
    logged.append(u"", out);
    logged.clear();
    logged.append(u"\u00E9", err);
    EXPECT_EQ(written(), "before\nout<\n\xC3\xA9");
}

TEST_F(CoalescingTextBufferLogTest, keepsThePiecesOfSeveralThreadsWhole) {
    constexpr int pieces = 200;
    constexpr std::size_t length = 9000;
    {
        const TestLogPath setting(path_);
        ManualTextBuffer logged;
        std::vector<std::thread> threads;
        for (const char16_t letter : {u'a', u'b', u'c'}) {
            threads.emplace_back([&logged, line = std::u16string(length, letter) + u"\n"] {
                for (int i = 0; i < pieces; ++i) logged.append(line.data(), line.size(), out);
            });
        }
        for (auto& thread : threads) thread.join();
    }
    std::ifstream lines(path_);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        ASSERT_EQ(line, std::string(length, line.at(0)));
    }
    EXPECT_EQ(count, 3 * pieces);
}

TEST_F(CoalescingTextBufferLogTest, goesOnWithoutAFileThatCannotBeOpened) {
    EXPECT_THAT(printWithLogAt(path_ + "/missing"), ElementsAre(Batch("\"text\"", out)));
    EXPECT_EQ(log_.count("error: Error: Unable to open numoraOutputStream"), 1);
}

TEST_F(CoalescingTextBufferLogTest, goesOnWithAFileThatCannotBeWritten) {
    EXPECT_THAT(printWithLogAt("/dev/full"), ElementsAre(Batch("\"text\"", out)));
    EXPECT_EQ(log_.count("error: Error writing to numoraOutputStream"), 1);
    EXPECT_EQ(log_.count("error: Error closing numoraOutputStream"), 1);
}

TEST_F(CoalescingTextBufferLogTest, writesAgainAfterAPieceThatCouldNotBeWritten) {
    const TestLogPath setting(path_);
    ManualTextBuffer logged;
    {
        const FileSizeLimit full(0);
        logged.append(u"first", out);
    }
    EXPECT_EQ(log_.count("error: Error writing to numoraOutputStream"), 1);
    logged.append(u"second", out);
    EXPECT_THAT(written(), testing::EndsWith("second"));
    EXPECT_EQ(log_.count("error: Error writing to numoraOutputStream"), 1);
}

TEST_F(CoalescingTextBufferLogTest, isOffWithAnEmptyPath) {
    EXPECT_THAT(printWithLogAt(""), ElementsAre(Batch("\"text\"", out)));
    EXPECT_EQ(log_.count("error: Error: Unable to open numoraOutputStream"), 0);
}

}  // namespace
}  // namespace connector::interpreter::v1
