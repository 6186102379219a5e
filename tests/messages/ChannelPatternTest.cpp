#include <gtest/gtest.h>

#include "messages/channelNames.h"

namespace {

using namespace messages;

TEST(ChannelTextTest, isANameOrAPatternOrNothing) {
    for (const auto* text : {"", "/", "a/b", "/a/", "/a//b", "/a*", "/**/a"})
        EXPECT_FALSE(isChannelName(text) || isChannelPattern(text)) << text;
    for (const auto* text : {"/a/*/b", "/*", "/a/*/**"})
        EXPECT_TRUE(isChannelPattern(text) && !isChannelName(text)) << text;
    EXPECT_TRUE(isChannelPattern("/a/../b") && isChannelName("/a/../b"));
    std::string taken;
    for (int c = 0; c < 256; ++c) {
        if (isChannelName(std::string("/a") + static_cast<char>(c))) taken += static_cast<char>(c);
    }
    EXPECT_EQ(taken, "!$()-.0123456789@ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz~");
}

TEST(ChannelMatchTest, isTheSameInBothDirections) {
    struct Case {
        std::string pattern, other;
        bool isMatch;
    };
    for (const Case& row :
         {Case{"/a/b", "/a/b", true}, Case{"/a/b", "/a/bc", false}, Case{"/a/b", "/a/b/c", false},
          Case{"/a/*/c", "/a/b/c", true}, Case{"/a/*/c", "/a/b/d", false}, Case{"/a/*", "/a/b/c", false},
          Case{"/a/**", "/a/b/c/d", true}, Case{"/a/**", "/a", false}, Case{"/a/**", "/b/c", false},
          Case{"/*/b", "/a/*", true}, Case{"/a/**", "/*/b/**", true}}) {
        EXPECT_EQ(canMatch(row.pattern, row.other), row.isMatch) << row.pattern << ' ' << row.other;
        EXPECT_EQ(canMatch(row.other, row.pattern), row.isMatch) << row.other << ' ' << row.pattern;
    }
}

}  // namespace
