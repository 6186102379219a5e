#include <gtest/gtest.h>

#include "frames.h"

namespace links {
namespace {

const Frame publish{.kind = Kind::Publish, .id = 0, .mayBeLost = true, .head = "channel", .body = "\"text\""};
const Frame response{.kind = Kind::Response, .id = 1, .head = "head", .body = "abc"};
const Frame restOfResponse{.kind = Kind::Response, .id = 1, .body = "def"};
const Frame request{.kind = Kind::Request, .id = 0x0102030405060708, .head = "head", .body = ""};

TEST(FrameReaderTest, layoutIsThatOfTheWire) {
    using namespace std::literals;
    EXPECT_EQ(
        piece({.kind = Kind::Publish, .id = 0x0102, .mayBeLost = true, .head = "h", .body = "body"}, true),
        "\x11\0\0\0\x10\x03\x01\0\x02\x01\0\0\0\0\0\0hbody"s);
}

TEST(FrameReaderTest, framesAreTheSameWhereverTheBytesAreSplit) {
    Frame other = response;
    other.id = 2;
    const std::string bytes = piece(publish) + piece(response, true) + piece(other, true) + piece(request) +
                              piece(restOfResponse, true) + piece(publish) +
                              piece({.kind = Kind::Response, .id = 2}) + piece(restOfResponse) +
                              piece(response);
    other.body = "abc";
    Frame joined = response;
    joined.body = "abcdefdef";
    const std::vector<Frame> expected{publish, request, publish, other, joined, response};
    for (std::size_t first = 0; first <= bytes.size(); ++first) {
        for (std::size_t second = first; second <= bytes.size(); ++second) {
            FrameReader reader;
            std::vector<Frame> frames;
            const FrameReader::Take take = [&](Frame&& frame) { frames.push_back(std::move(frame)); };
            reader.feed(std::string_view(bytes).substr(0, first), take);
            reader.feed(std::string_view(bytes).substr(first, second - first), take);
            reader.feed(std::string_view(bytes).substr(second), take);
            ASSERT_EQ(frames, expected) << first << ' ' << second;
        }
    }
}

struct WrongCase {
    std::string name, bytes, problem;
};
class WrongFrameTest : public testing::TestWithParam<WrongCase> {};

TEST_P(WrongFrameTest, isRefusedAndWhatCameBeforeItIsNot) {
    FrameReader reader;
    std::vector<Frame> frames;
    try {
        reader.feed(piece(publish) + GetParam().bytes,
                    [&](Frame&& frame) { frames.push_back(std::move(frame)); });
        FAIL() << "accepted";
    } catch (const BadFrame& error) {
        EXPECT_EQ(error.what(), GetParam().problem);
    }
    EXPECT_EQ(frames, std::vector{publish});
}

std::string changed(std::size_t at, char byte) {
    std::string bytes = piece(response).substr(0, FrameHeader::size);
    bytes[at] = byte;
    return bytes;
}

std::string manyUnfinished() {
    std::string bytes;
    for (std::uint64_t id = 0; id <= 64; ++id)
        bytes += piece({.kind = Kind::Response, .id = id, .body = "a"}, true);
    return bytes;
}

INSTANTIATE_TEST_SUITE_P(
    Frames, WrongFrameTest,
    testing::Values(WrongCase{"NoKind", changed(4, 0), "a frame is of the unknown kind 0"},
                    WrongCase{"UnknownKind", changed(4, 23), "a frame is of the unknown kind 23"},
                    WrongCase{"Flags", changed(5, 4), "a frame has unknown flags"},
                    WrongCase{"ShorterThanItsHead", changed(0, 15), "a frame is shorter than its head"},
                    WrongCase{"ShorterThanItsHeader", changed(0, 0), "a frame is shorter than its head"},
                    WrongCase{"LongPiece", changed(2, 4), "a piece of a frame is too long"},
                    WrongCase{"LaterHead", piece(response, true) + piece(response),
                              "a later piece of a frame has a head"},
                    WrongCase{"Unfinished", manyUnfinished(), "too many frames are unfinished"}),
    [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace links
