#include <cstdlib>
#include <fstream>
#include <stdexcept>

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
}

TEST_F(CoalescingTextBufferTest, deliversEscapedTextInAStorageOfTheExactSize) {
    const std::u16string text = u"x<\t\"\u00E9\U0001F600\xD83D";
    buffer_.setCallback([this](auto&& batch, auto type) {
        EXPECT_EQ(batch.capacity(), batch.view().size());
        batches_.callback()(std::move(batch), type);
    });
    buffer_.append(text.data(), 3, out);
    buffer_.append(text.data() + 3, text.size() - 3, out);
    buffer_.flush();
    EXPECT_THAT(batches_.all(),
                ElementsAre(Batch("\"x\\u003c\\t\\\"\xC3\xA9\xF0\x9F\x98\x80\xEF\xBF\xBD\"", out)));
}

TEST_F(CoalescingTextBufferTest, keepsTextUntilThereIsACallback) {
    buffer_.setCallback(nullptr);
    print(u"output ");
    print(u"error", err);
    buffer_.flush();  // from here on it is due
    print(u" more", err);
    buffer_.setCallback(batches_.callback());
    EXPECT_THAT(batches_.await(1), ElementsAre(Batch("\"output error more\"", err)));  // as the last stream
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
    EXPECT_EQ(batches_.all().size(), 2U);
    EXPECT_GE(log_.count("error: Caught unknown exception in Coalescer callback"), 1);
}

TEST_F(CoalescingTextBufferTest, keepsForTelemetryWhatFitsInWhole) {
    buffer_.appendDduxDataForSuggestion(u"off");
    print(u"off");
    buffer_.setDduxEnabled(true);
    const std::u16string most(44099, u'a');
    const std::pair<std::vector<std::u16string>, std::string> table[] = {
        {{u"<a>\n", u"\u00E9"}, "<a>\n\xC3\xA9"},
        {{most, u"b"}, std::string(44099, 'a') + "b"},
        {{most + u"bc"}, ""},
        {{most, u"bc", u"d"}, std::string(44099, 'a') + "d"},
        {{most, u"\u00E9"}, std::string(44099, 'a')}};  // the limit is one of bytes
    for (const auto& [texts, kept] : table) {
        for (const auto& text : texts) print(text);
        buffer_.flush();
        buffer_.clear();
        EXPECT_EQ(buffer_.getDduxData(), kept);
        buffer_.clearDduxData();
    }
    print(u"x");
    buffer_.appendDduxDataForSuggestion(u"\u00E9<");
    buffer_.setDduxEnabled(false);
    print(u"off");
    EXPECT_EQ(buffer_.getDduxData(), "xDid you mean: \xC3\xA9< ?");
}

class CoalescingTextBufferLogTest : public CoalescingTextBufferTest {
protected:
    ~CoalescingTextBufferLogTest() override {
        ::unsetenv(variable);
        ::unlink(path_.c_str());
    }

    /// A buffer with its test log at `path`.
    std::unique_ptr<ManualTextBuffer> logging(const std::string& path) {
        ::setenv(variable, path.c_str(), 1);
        auto buffer = std::make_unique<ManualTextBuffer>();
        buffer->setCallback(batches_.callback());
        return buffer;
    }

    static constexpr const char* variable = "NUFULLSTACK_TEST_CONTAINER_LOG";
    const std::string path_ = testing::TempDir() + "text_buffer_log_" + std::to_string(::getpid());
};

TEST_F(CoalescingTextBufferLogTest, appendsEveryPieceWholeToTheFileAsItComes) {
    std::ofstream(path_) << "\xC3\xA9<\n";
    const auto buffer = logging(path_);
    buffer->append(u"\u00E9<\n", err);
    buffer->clear();
    onThreads(3, [&buffer](int number) {
        const auto line = std::u16string(3000, static_cast<char16_t>(u'a' + number)) + u"\n";
        for (int i = 0; i < 2000; ++i) buffer->append(line.data(), line.size(), out);
    });
    std::ifstream file(path_);
    int count = 0;
    for (std::string line; std::getline(file, line); ++count) {
        ASSERT_EQ(line, count < 2 ? "\xC3\xA9<" : std::string(3000, line.at(0)));
    }
    EXPECT_EQ(count, 2 + 3 * 2000);
}

TEST_F(CoalescingTextBufferLogTest, goesOnWithoutAFileThatCannotBeOpenedOrWritten) {
    for (const std::string& path : {std::string(), path_ + "/missing", std::string("/dev/full")}) {
        const auto buffer = logging(path);
        buffer->append(u"text", out);
        buffer->flush();
    }
    EXPECT_THAT(log_.lines(), ElementsAre("error: Error: Unable to open numoraOutputStream",
                                          "error: Error writing to numoraOutputStream",
                                          "error: Error closing numoraOutputStream"));
    EXPECT_EQ(batches_.all(), std::vector(3, Batch("\"text\"", out)));
}

}  // namespace
}  // namespace connector::interpreter::v1
