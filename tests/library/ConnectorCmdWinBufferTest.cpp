#include <algorithm>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "connector/interpreter/ConnectorCmdWinBuffer.h"

namespace connector::interpreter {
namespace {

void write(ConnectorCmdWinBuffer& buffer, const std::u16string& text) {
    const auto size = static_cast<std::streamsize>(text.size());
    EXPECT_EQ(buffer.sputn(text.data(), size), size);
}

std::u16string randomText(std::minstd_rand& random, std::u16string_view alphabet, std::size_t maxSize) {
    std::u16string text(random() % (maxSize + 1), u' ');
    for (char16_t& unit : text) unit = alphabet[random() % alphabet.size()];
    return text;
}

// The sizes make pieces fit, fill exactly, wrap, and exceed the whole storage, in every order.
TEST(ConnectorCmdWinBufferTest, keepsTheNewestOfWhateverIsWrittenInPiecesAndUnits) {
    std::minstd_rand random(1);
    for (const std::size_t size : {1U, 2U, 7U}) {
        ConnectorCmdWinBuffer buffer(size);
        std::u16string all;
        for (int i = 0; i < 1000; ++i) {
            const std::u16string piece = randomText(random, u"abcd", size + 2);
            if (piece.size() == 1) {
                buffer.sputc(piece[0]);
            } else {
                write(buffer, piece);
            }
            all += piece;
            ASSERT_EQ(buffer.getString(), all.substr(all.size() - std::min(all.size(), size)))
                << size << " " << i;
            ASSERT_EQ(buffer.isTruncated(), all.size() > size) << size << " " << i;
            if (random() % 8 != 0) continue;
            buffer.clear();
            all.clear();
        }
    }
}

// As it is to be, without regard for time.
std::u16string withBackspacesErasedInPlace(std::u16string text) {
    for (std::size_t i = 1; text.size() >= 2 && i + 1 <= text.size(); ++i) {
        if (text[i] == u'\b') text.erase(i - 1, 2);
    }
    return text;
}

TEST(ConnectorCmdWinBufferTest, carriesOutBackspacesWithoutSteppingBack) {
    ConnectorCmdWinBuffer wrapped(3);
    write(wrapped, u"xab");
    write(wrapped, u"\b");
    EXPECT_EQ(wrapped.getString(), u"a");

    std::minstd_rand random(2);
    for (int i = 0; i < 3000; ++i) {
        ConnectorCmdWinBuffer buffer(64);
        const std::u16string text = randomText(random, u"a\xD83D\b", 40);  // units, not characters
        write(buffer, text);
        ASSERT_EQ(buffer.getString(), withBackspacesErasedInPlace(text));
    }
}

}  // namespace
}  // namespace connector::interpreter
