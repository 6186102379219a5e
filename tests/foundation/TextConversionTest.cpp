#include <stdexcept>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "fl/i18n/text.h"

using namespace std::string_literals;

namespace fl::i18n {
namespace {

constexpr std::size_t nowhere = std::string::npos;

/// `offset` and `reason` describe the first malformed sequence; `utf16` is the text with replacements.
struct Utf8Case {
    std::string name, utf8;
    std::u16string utf16;
    std::size_t offset = nowhere;
    std::string reason = {};
};

/// Where and why `convert` refuses its text.
template <class Convert>
std::pair<std::size_t, std::string> faultOf(Convert convert) {
    try {
        convert();
    } catch (const ConversionError& error) {
        return {error.offset(), error.what()};
    }
    return {nowhere, ""};
}

class Utf8Test : public testing::TestWithParam<Utf8Case> {};

TEST_P(Utf8Test, isConvertedOrItsFirstFaultIsNamed) {
    const auto& [name, utf8, utf16, offset, reason] = GetParam();
    const auto [where, why] = faultOf([&, &text = utf8] { to_ustring(text); });
    EXPECT_EQ(where, offset);
    EXPECT_EQ(to_ustring(utf8, codecvt_string_to_ustring("UTF-8", true)), utf16);
    if (offset == nowhere) {
        EXPECT_EQ(to_ustring(utf8), utf16);
        EXPECT_EQ(to_string(utf16), utf8);
    } else {
        EXPECT_EQ(why, "Malformed UTF-8 at byte " + std::to_string(offset) + ": " + reason);
    }
}

TEST_P(Utf8Test, decodesTheSameWhereverItIsCut) {
    const std::string_view utf8 = GetParam().utf8;
    Utf8Decoder decoder;
    for (std::size_t first = 0; first <= utf8.size(); ++first) {
        for (std::size_t second = first; second <= utf8.size(); ++second) {
            std::u16string out = u"<";
            decoder.decode(utf8.substr(0, first), out);
            decoder.decode(utf8.substr(first, second - first), out);
            decoder.decode(utf8.substr(second), out);
            decoder.finish(out);
            EXPECT_EQ(out, u"<" + GetParam().utf16) << "cut at " << first << " and " << second;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Text, Utf8Test,
    testing::Values(
        Utf8Case{"NulAndByteOrderMark", "\0\xEF\xBB\xBFz"s, u"\0\uFEFFz"s},
        Utf8Case{"Limits",
                 "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4"
                 "\x8F\xBF\xBF",
                 u"\x7F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF"},
        Utf8Case{"LoneContinuation",
                 "ab\x80"
                 "c\xBF",
                 u"ab\uFFFDc\uFFFD", 2, "unexpected continuation byte"},
        Utf8Case{"OverlongTwo", "\xC1\xBF", u"\uFFFD\uFFFD", 0, "overlong form"},
        Utf8Case{"OverlongThree", "\xE0\x9F\xBF", u"\uFFFD\uFFFD\uFFFD", 0, "overlong form"},
        Utf8Case{"OverlongFour", "\xF0\x8F\xBF\xBF", u"\uFFFD\uFFFD\uFFFD\uFFFD", 0, "overlong form"},
        Utf8Case{"Surrogate", "\xC3\xA9\xED\xA0\x80", u"\u00E9\uFFFD\uFFFD\uFFFD", 2, "surrogate"},
        Utf8Case{"TooLarge", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD", 0, "number above U+10FFFF"},
        Utf8Case{"UnusedBytes", "\xF5\xFF", u"\uFFFD\uFFFD", 0, "byte that UTF-8 does not use"},
        Utf8Case{"Cut", "\xC3(\xE2\x82\xC3\xA9", u"\uFFFD(\uFFFD\u00E9", 0, "missing continuation byte"},
        Utf8Case{"CutAtTheEnd", "x\xF0\x9F\x98", u"x\uFFFD", 1, "unfinished sequence"},
        Utf8Case{"ManySubparts",
                 "a\xF1\x80\x80\xE1\x80\xC2"
                 "b\x80"
                 "c\x80\xBF"
                 "d",
                 u"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd", 1, "missing continuation byte"}),
    [](const auto& info) { return info.param.name; });

TEST(TextConversionTest, replacesOrRefusesAnUnpairedSurrogate) {
    const codecvt_ustring_to_string strict("UTF-8", false);
    const std::tuple<std::u16string, std::string, std::size_t> table[] = {
        {u"ab\xD83D", "ab\xEF\xBF\xBD", 2},
        {u"\xDBFF\xE000", "\xEF\xBF\xBD\xEE\x80\x80", 0},
        {u"\u00E9\xDC00z", "\xC3\xA9\xEF\xBF\xBDz", 1},
        {u"\xD83D\xD83D\xDE00", "\xEF\xBF\xBD\xF0\x9F\x98\x80", 0}};
    for (const auto& [utf16, utf8, offset] : table) {
        EXPECT_EQ(to_string(utf16), utf8);
        EXPECT_EQ(faultOf([&, &text = utf16] { to_string(text, strict); }).first, offset);
    }
    EXPECT_EQ(to_string(std::u16string_view(u"\xD83D\xDE00", 1)), "\xEF\xBF\xBD");  // looks no further
    EXPECT_THROW(codecvt_string_to_ustring("utf-8"), std::invalid_argument);
    EXPECT_THROW(codecvt_ustring_to_string("utf-8"), std::invalid_argument);
}

}  // namespace
}  // namespace fl::i18n
