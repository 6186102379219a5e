#include <gtest/gtest.h>

#include "textPieces.h"

namespace {

using Pieces = std::vector<std::string>;

Pieces pieces(std::string_view text, std::size_t limit) {
    Pieces all;
    while (!text.empty()) {
        const std::size_t size = messages::firstPiece(text, limit);
        all.emplace_back(text.substr(0, size));
        text.remove_prefix(size);
    }
    return all;
}

TEST(TextPiecesTest, areOfWholeCharactersHoweverLargeTheseAre) {
    EXPECT_EQ(pieces("abcdefg", 3), (Pieces{"abc", "def", "g"}));
    EXPECT_EQ(pieces(R"(a\\\\n)", 4), (Pieces{R"(a\\)", R"(\\n)"}));
    EXPECT_EQ(pieces(R"(\u003c\u003e)", 7), (Pieces{R"(\u003c)", R"(\u003e)"}));
    EXPECT_EQ(pieces(R"(a\ud83d\ude00b)", 12), (Pieces{"a", R"(\ud83d\ude00)", "b"}));
    EXPECT_EQ(pieces("aé😀b", 4), (Pieces{"aé", "😀", "b"}));
    EXPECT_EQ(pieces(R"(\ud83d\ude00x)", 3), (Pieces{R"(\ud83d\ude00)", "x"}));
    EXPECT_EQ(pieces("😀x", 2), (Pieces{"😀", "x"}));
    EXPECT_EQ(pieces("a\\", 1), (Pieces{"a", "\\"}));  // no JSON, but it ends
    EXPECT_EQ(pieces(std::string(5, '\x80'), 2), (Pieces{std::string(5, '\x80')}));
}

}  // namespace
