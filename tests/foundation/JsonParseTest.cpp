#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <gtest/gtest.h>

#include "connector/json/parse.h"
#include "connector/json/write.h"
#include "support/thrownText.h"

namespace {

using connector::json::deepestNesting;
using connector::json::parse;
using connector::json::ParseError;
using namespace std::string_literals;

std::string compact(const std::string& text) { return connector::json::written(parse(text)); }

/// With `text` as a value that is not looked into.
std::string writtenAsText(const std::string& text) {
    return connector::json::written(parse("{\"t\":" + text + "}", deepestNesting, 1, "t"));
}

std::string failure(const std::string& text) {
    return thrownText([&] { parse(text); });
}

struct Row {
    std::string name, text, outcome;
};
std::string nameOf(const testing::TestParamInfo<Row>& info) { return info.param.name; }

class JsonParseTest : public testing::TestWithParam<Row> {};

TEST_P(JsonParseTest, readsWhatIsJson) { EXPECT_EQ(compact(GetParam().text), GetParam().outcome); }

TEST_P(JsonParseTest, writesTextsInTheSameForm) {
    const std::string written = writtenAsText("[" + GetParam().text + "]");
    const bool keepsEscapes = GetParam().text.find('\\') != std::string::npos;
    EXPECT_EQ(keepsEscapes ? compact(written) : written, "{\"t\":[" + GetParam().outcome + "]}");
}

INSTANTIATE_TEST_SUITE_P(
    Values, JsonParseTest,
    testing::Values(
        Row{"Blanks", " \t\r\n[ 1 , { \"a\" : null } ] \n", R"([1,{"a":null}])"},
        Row{"EmptyAndWords", "[[],{},\"\",true,false,null]", R"([[],{},"",true,false,null])"},
        Row{"Integers", "[0,-0,-9223372036854775808,18446744073709551615]",
            "[0,0,-9223372036854775808,18446744073709551615]"},
        Row{"Reals", "[1.5,-2e3,1E-2,0.0,1e-400]", "[1.5,-2000,0.01,0,0]"},
        // Far below the range, near 1 again, and a zero whose exponent fits nowhere.
        Row{"SmallReals",
            "[0." + std::string(400, '0') + "1,-0." + std::string(200, '0') + "1e-300,0." +
                std::string(400, '0') + "15e401,1e-99999999999999999999,0e99999999999999999999]",
            "[0,0,1.5,0,0]"},
        Row{"Order", R"({"b":1,"a":{"d":{},"c":[1.0,-0]},"ab":0,"b":"<2>"})",
            R"({"a":{"c":[1,0],"d":{}},"ab":0,"b":"\u003c2\u003e"})"},
        Row{"EqualKeysInTwoForms", R"({"\u0061<":1,"b":0,"a<":2,"\"":3})", R"({"\"":3,"a\u003c":2,"b":0})"},
        Row{"Escapes", R"(["\"\\\/\b\f\n\r\t\u0041"])", R"(["\"\\/\b\f\n\r\tA"])"},
        Row{"Pair", R"("\uD83D\uDE00\u00e9")", "\"\xF0\x9F\x98\x80\xC3\xA9\""},
        Row{"Utf8", "\"\xC3\xA9\xE6\xBC\xA2\xF0\x9F\x98\x80\"", "\"\xC3\xA9\xE6\xBC\xA2\xF0\x9F\x98\x80\""}),
    nameOf);

class JsonParseFailureTest : public testing::TestWithParam<Row> {};

TEST_P(JsonParseFailureTest, saysWhereAndWhy) {
    EXPECT_EQ(failure(GetParam().text), "Invalid JSON at byte " + GetParam().outcome);
    if (!GetParam().text.empty()) {
        EXPECT_THROW(writtenAsText("[" + GetParam().text + "]"), ParseError);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, JsonParseFailureTest,
    testing::Values(Row{"Nothing", "", "0: expected a value but the text ends"},
                    Row{"Word", "[nul]", "1: expected a value"},
                    Row{"NullAfter", "1\0"s, "1: unexpected text after the value"},
                    Row{"NoBracket", "[1", "2: expected ',' or ']' but the text ends"},
                    Row{"TrailingComma", "[1,]", "3: expected a value"},
                    Row{"NoColon", R"({"a" 1})", "5: expected ':'"},
                    Row{"BareKey", "{a:1}", "1: expected a key in quotes"},
                    Row{"NoBrace", R"({"a":1)", "6: expected ',' or '}' but the text ends"},
                    Row{"LeadingZero", "[01]", "1: leading zero in a number"},
                    Row{"NoFraction", "1.", "2: expected a digit but the text ends"},
                    Row{"NoExponent", "[1e+]", "4: expected a digit"},
                    Row{"TooLarge", "[1e400]", "1: number out of the range of a double"},
                    Row{"LargeInSpiteOfItsExponent", "1" + std::string(400, '0') + "e-50",
                        "0: number out of the range of a double"},
                    Row{"LargestExponent", "1e99999999999999999999",
                        "0: number out of the range of a double"},
                    Row{"NoQuote", "\"abc", "4: unterminated string"},
                    Row{"Newline", "\"a\nb\"", "2: unescaped control character in a string"},
                    Row{"Escape", R"("a\x")", "2: invalid escape sequence"},
                    Row{"Hex", R"("\u12G4")", "3: expected four hexadecimal digits"},
                    Row{"HexCut", R"("\u12)", "2: incomplete escape sequence"},
                    Row{"HighAlone", R"("\uD83Dx")", "1: unpaired surrogate"},
                    Row{"Overlong", "[\"ab\xC0\xAF\"]", "4: malformed UTF-8: overlong form"}),
    nameOf);

TEST(JsonWriteTest, writesWhatProgramsPutIntoObjects) {
    Poco::JSON::Object object(Poco::JSON_PRESERVE_KEY_ORDER);
    object.set("z<", std::int32_t{-1});
    object.set("a", Poco::JSON::Array());
    object.set("nan", std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(connector::json::written(object), R"({"z\u003c":-1,"a":[],"nan":null})");
    EXPECT_THROW(connector::json::written(Poco::Dynamic::Var(std::vector<std::string>{"a"})),
                 Poco::BadCastException);
}

TEST(JsonParseNestingTest, hasAnEnd) {
    const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    EXPECT_EQ(compact(nested(deepestNesting)), nested(deepestNesting));
    EXPECT_EQ(failure(std::string(1'000'000, '[')),
              "Invalid JSON at byte 1000: arrays and objects are nested too deeply");
    EXPECT_NO_THROW(connector::json::parse(nested(3), 3));
    EXPECT_THROW(connector::json::parse(nested(4), 3), connector::json::ParseError);
    EXPECT_THROW(connector::json::parse("{\"t\":" + nested(3) + "}", 3, 1, "t"), ParseError);
}

}  // namespace
