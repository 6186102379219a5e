#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "connector/common/DataBuffer.h"
#include "connector/json/escape.h"
#include "fl/i18n/text.h"

using namespace std::string_literals;

namespace connector::json {
namespace {

const std::string replaced = "\xEF\xBF\xBD";

template <class Text>
std::string escaped(const Text& text) {
    common::DataBuffer out("before");
    appendEscaped(out, text);
    EXPECT_EQ(out.view().substr(0, 6), "before");
    return std::string(out.view().substr(6));
}

struct EscapeCase {
    std::string name, utf8, json;
};
const std::vector<EscapeCase> cases{
    {"Empty", "", ""},
    {"Named", "\"\n\t\r\b\f\\", R"(\"\n\t\r\b\f\\)"},
    {"Markup", "<a href=\"x\">it's & \xE2\x82\xAC</a>\n",
     "\\u003ca href\\u003d\\\"x\\\"\\u003eit\\u0027s \\u0026 \xE2\x82\xAC\\u003c/a\\u003e\\n"},
    {"Controls",
     "\0\x1\x2\x3\x4\x5\x6\x7\v\xE\xF\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19\x1A\x1B[\x1C\x1D\x1E\x1F "s,
     R"(\u0000\u0001\u0002\u0003\u0004\u0005\u0006\u0007\u000b\u000e\u000f\u0010\u0011\u0012\u0013\u0014)"
     R"(\u0015\u0016\u0017\u0018\u0019\u001a\u001b[\u001c\u001d\u001e\u001f )"},
    {"NeighboursOfSpecials", "!#%(;?[]\x7F/", "!#%(;?[]\x7F/"},
    {"Limits",
     "\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
     "\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
    {"TooLarge", "\xF4\x90\x80\x80.\xF8\x88\x80\x80\x80.\xFC\x84\x80\x80\x80\x80.\xFE\xFF",
     replaced + "." + replaced + "." + replaced + "." + replaced + replaced},
    {"Continuations", "\x80\xBF\xC3\xA9\xA9", replaced + replaced + "\xC3\xA9" + replaced},
    {"Overlong", "\xC1\xBF\xE0\x9F\xBF\xF0\x8F\xBF\xBF\xF8\x80\x80\x80\xBC\xFC\x80\x80\x80\x80\xBC",
     replaced + replaced + replaced + replaced + replaced},
    {"Surrogates", "\xED\xA0\x80.\xED\xBF\xBF", replaced + "." + replaced},
    {"CutByText", "\xC3(\xE2\x82<\xF0\x9F\x98\"", replaced + "(" + replaced + "\\u003c" + replaced + "\\\""},
    {"CutBySequence", "\xF0\x9F\x98\xC3\xA9\xE2\xE2\x82\xAC",
     replaced + "\xC3\xA9" + replaced + "\xE2\x82\xAC"},
    {"CutLong", "\xFD\xBF\xBF\xBF\xBF(", replaced + "("}};

// Blocks, and the pieces for which room is made, begin and end at other places each time.
TEST(JsonEscapeTest, writesTheBodyOfAJsonStringWhereverItStandsInPlainText) {
    for (const auto& [name, utf8, json] : cases) {
        EXPECT_EQ(json::quoted(utf8), '"' + json + '"') << name;
        for (std::size_t before = 0; before < 1040; before += before == 39 ? 961 : 1) {
            for (const std::size_t after : {0U, 3U, 20U, 40U}) {
                const auto surrounded = [before, after](const std::string& text) {
                    return std::string(before, 'a').append(text).append(after, 'z');
                };
                EXPECT_EQ(escaped(std::string_view(surrounded(utf8))), surrounded(json))
                    << name << " with " << before << " characters before and " << after << " after";
            }
        }
    }
}

TEST(JsonEscapeTest, replacesASequenceThatTheEndCutsShort) {
    const std::string longest[] = {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xF8\x88\x80\x80\x80",
                                   "\xFC\x84\x80\x80\x80\x80"};
    for (const std::string& sequence : longest) {
        for (std::size_t length = 1; length < sequence.size(); ++length) {
            // The rest is there, but does not belong to the text.
            const std::string text = "ab" + sequence;
            EXPECT_EQ(escaped(std::string_view(text).substr(0, 2 + length)), "ab" + replaced);
        }
    }
}

/// One replacement for each run of them: how many bytes one stands for depends on the decoder.
std::string withRunsJoined(std::string text) {
    const std::string twice = replaced + replaced;
    for (auto at = text.find(twice); at != std::string::npos; at = text.find(twice, at)) text.erase(at, 3);
    return text;
}

class JsonEscapeRandomTest : public testing::Test {
protected:
    std::size_t below(std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
    }

    /// Plain runs about as long as blocks, what the table has, sequences that are cut, any bytes.
    std::string randomUtf8() {
        std::string text;
        for (std::size_t count = below(30); count > 0; --count) {
            const std::size_t kind = below(3);
            const std::string& piece = cases.at(below(cases.size())).utf8;
            if (kind == 0) text.append(below(70), 'a');
            if (kind == 1) text += piece.substr(0, below(piece.size() + 1));
            if (kind == 2) text += static_cast<char>(below(256));
        }
        return text;
    }
    std::u16string randomUtf16() {
        std::u16string text;
        for (std::size_t count = below(30); count > 0; --count) {
            const std::size_t kind = below(4);
            if (kind == 0) text.append(below(70), u'a');
            if (kind == 1) text += static_cast<char16_t>(below(0x100));
            if (kind == 2) text += static_cast<char16_t>(0xD800 + below(0x800));
            if (kind == 3) text += static_cast<char16_t>(below(0x10000));
        }
        return text;
    }

private:
    std::mt19937 random_{20240229};
};

TEST_F(JsonEscapeRandomTest, isTheSameForEitherEncoding) {
    const fl::i18n::codecvt_string_to_ustring replacing("UTF-8", true);
    for (int round = 0; round < 20000; ++round) {
        const std::string utf8 = randomUtf8();
        const std::string json = escaped(std::u16string_view(fl::i18n::to_ustring(utf8, replacing)));
        ASSERT_EQ(withRunsJoined(escaped(std::string_view(utf8))), withRunsJoined(json)) << round;
        const std::u16string utf16 = randomUtf16();
        ASSERT_EQ(escaped(std::u16string_view(utf16)), escaped(std::string_view(fl::i18n::to_string(utf16))))
            << round;
    }
    EXPECT_EQ(escaped(std::u16string_view(u"\xD83D\xDE00", 1)), replaced);  // looks no further
}

// A surrogate pair over the border between two of the pieces for which room is made.
TEST(JsonEscapeUtf16Test, keepsAPairTogetherWhereverItStands) {
    for (std::size_t before = 480; before < 1100; ++before) {
        const std::u16string text = std::u16string(before, u'a') + u"\U0001F600\u00E9";
        const std::string utf8 = std::string(before, 'a') + "\xF0\x9F\x98\x80\xC3\xA9";
        EXPECT_EQ(escaped(std::u16string_view(text)), utf8);
        EXPECT_EQ(fl::i18n::to_string(text), utf8);
    }
}

// The longest form of every character, in text of several pieces.
TEST(JsonEscapeUtf16Test, hasRoomForTheLongestForm) {
    for (const std::size_t size : {1023U, 1024U, 1025U, 5000U}) {
        const std::string json = escaped(std::u16string_view(std::u16string(size, u'<')));
        EXPECT_EQ(json.size(), 6 * size);
        EXPECT_EQ(escaped(std::string_view(std::string(size, '<'))), json);
        EXPECT_EQ(escaped(std::string_view(std::string(size, '\xFF'))).size(), 3 * size);
    }
}

}  // namespace
}  // namespace connector::json
