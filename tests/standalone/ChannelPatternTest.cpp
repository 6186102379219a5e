#include <string>

#include <gtest/gtest.h>

#include "messages/channelNames.h"

namespace {

enum class Kind { Nothing, Pattern, Name };

struct TextCase {
    std::string label, text;
    Kind kind;
};
class ChannelTextTest : public testing::TestWithParam<TextCase> {};

TEST_P(ChannelTextTest, isANameOrAPatternOrNothing) {
    EXPECT_EQ(messages::isChannelName(GetParam().text), GetParam().kind == Kind::Name);
    EXPECT_EQ(messages::isChannelPattern(GetParam().text), GetParam().kind != Kind::Nothing);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ChannelTextTest,
    testing::Values(TextCase{.label = "Empty", .text = "", .kind = Kind::Nothing},
                    TextCase{.label = "SlashOnly", .text = "/", .kind = Kind::Nothing},
                    TextCase{.label = "NoSlash", .text = "a/b", .kind = Kind::Nothing},
                    TextCase{.label = "TrailingSlash", .text = "/a/", .kind = Kind::Nothing},
                    TextCase{.label = "EmptySegment", .text = "/a//b", .kind = Kind::Nothing},
                    TextCase{.label = "Space", .text = "/a b", .kind = Kind::Nothing},
                    TextCase{.label = "Quote", .text = "/a\"b", .kind = Kind::Nothing},
                    TextCase{.label = "NotAscii", .text = "/\xC3\xA4", .kind = Kind::Nothing},
                    TextCase{.label = "Nul", .text = std::string("/a\0", 3), .kind = Kind::Nothing},
                    TextCase{.label = "StarInSegment", .text = "/a*", .kind = Kind::Nothing},
                    TextCase{.label = "ThreeStars", .text = "/***", .kind = Kind::Nothing},
                    TextCase{.label = "AllBeforeTheEnd", .text = "/**/a", .kind = Kind::Nothing},
                    TextCase{.label = "OneSegment", .text = "/a", .kind = Kind::Name},
                    TextCase{
                        .label = "EveryKindOfCharacter", .text = "/azAZ09/-_!~()$@./..", .kind = Kind::Name},
                    TextCase{.label = "StarInside", .text = "/a/*/b", .kind = Kind::Pattern},
                    TextCase{.label = "StarsOnly", .text = "/*/*", .kind = Kind::Pattern},
                    TextCase{.label = "AllAtTheEnd", .text = "/a/*/**", .kind = Kind::Pattern}),
    [](const auto& info) { return info.param.label; });

struct MatchCase {
    std::string label, pattern, other;
    bool canMatch;
};
class ChannelMatchTest : public testing::TestWithParam<MatchCase> {};

TEST_P(ChannelMatchTest, isTheSameInBothDirections) {
    EXPECT_EQ(messages::canMatch(GetParam().pattern, GetParam().other), GetParam().canMatch);
    EXPECT_EQ(messages::canMatch(GetParam().other, GetParam().pattern), GetParam().canMatch);
}

INSTANTIATE_TEST_SUITE_P(
    Names, ChannelMatchTest,
    testing::Values(
        MatchCase{.label = "Same", .pattern = "/a/b", .other = "/a/b", .canMatch = true},
        MatchCase{.label = "Prefix", .pattern = "/a/b", .other = "/a/bc", .canMatch = false},
        MatchCase{.label = "Longer", .pattern = "/a/b", .other = "/a/b/c", .canMatch = false},
        MatchCase{.label = "OneIsOne", .pattern = "/a/*", .other = "/a/b", .canMatch = true},
        MatchCase{.label = "OneIsNotNone", .pattern = "/a/*", .other = "/a", .canMatch = false},
        MatchCase{.label = "OneIsNotTwo", .pattern = "/a/*", .other = "/a/b/c", .canMatch = false},
        MatchCase{.label = "OneInside", .pattern = "/a/*/c", .other = "/a/b/c", .canMatch = true},
        MatchCase{.label = "OneInsideAnotherEnd", .pattern = "/a/*/c", .other = "/a/b/d", .canMatch = false},
        MatchCase{.label = "AllIsOne", .pattern = "/a/**", .other = "/a/b", .canMatch = true},
        MatchCase{.label = "AllIsThree", .pattern = "/a/**", .other = "/a/b/c/d", .canMatch = true},
        MatchCase{.label = "AllIsNotNone", .pattern = "/a/**", .other = "/a", .canMatch = false},
        MatchCase{.label = "AllElsewhere", .pattern = "/a/**", .other = "/b/c", .canMatch = false},
        MatchCase{.label = "Everything", .pattern = "/**", .other = "/a", .canMatch = true}),
    [](const auto& info) { return info.param.label; });

INSTANTIATE_TEST_SUITE_P(
    Patterns, ChannelMatchTest,
    testing::Values(
        MatchCase{.label = "CrossedStars", .pattern = "/*/b", .other = "/a/*", .canMatch = true},
        MatchCase{.label = "StarsOfOtherLength", .pattern = "/*", .other = "/*/*", .canMatch = false},
        MatchCase{.label = "StarsAndOtherEnds", .pattern = "/*/b", .other = "/*/c", .canMatch = false},
        MatchCase{.label = "AllAndStar", .pattern = "/a/**", .other = "/*", .canMatch = false},
        MatchCase{.label = "AllAndTwoStars", .pattern = "/a/**", .other = "/*/*", .canMatch = true},
        MatchCase{.label = "AllUnderAll", .pattern = "/a/**", .other = "/a/b/**", .canMatch = true},
        MatchCase{.label = "AllBesideAll", .pattern = "/a/**", .other = "/b/**", .canMatch = false},
        MatchCase{.label = "AllAfterStar", .pattern = "/*/**", .other = "/a/b/*", .canMatch = true}),
    [](const auto& info) { return info.param.label; });

}  // namespace
