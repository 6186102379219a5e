#include "FrameHeader.h"

#include "littleEndian.h"

namespace links {

namespace {

constexpr unsigned moreFlag = 1;
constexpr unsigned lossFlag = 2;
constexpr std::size_t lengthBytes = 4;  // the length does not count itself

}  // namespace

FrameHeader::Bytes FrameHeader::encode() const {
    Bytes bytes;
    putLittleEndian(bytes.data(), static_cast<std::uint32_t>(size - lengthBytes + headBytes + bodyBytes));
    bytes[4] = static_cast<char>(kind);
    bytes[5] = static_cast<char>((hasMore ? moreFlag : 0) | (mayBeLost ? lossFlag : 0));
    putLittleEndian(bytes.data() + 6, static_cast<std::uint16_t>(headBytes));
    putLittleEndian(bytes.data() + 8, id);
    return bytes;
}

FrameHeader FrameHeader::decode(const Bytes& bytes) {
    const std::size_t length = getLittleEndian<std::uint32_t>(bytes.data());
    const auto kind = static_cast<unsigned char>(bytes[4]);
    const auto flags = static_cast<unsigned char>(bytes[5]);
    const std::size_t headBytes = getLittleEndian<std::uint16_t>(bytes.data() + 6);
    const std::size_t least = size - lengthBytes + headBytes;
    if (kind < static_cast<unsigned>(Kind::Hello) || kind > static_cast<unsigned>(Kind::Stop)) {
        throw BadFrame("a frame is of the unknown kind " + std::to_string(kind));
    }
    if (flags > (moreFlag | lossFlag)) throw BadFrame("a frame has unknown flags");
    if (length < least) throw BadFrame("a frame is shorter than its head");
    if (length - least > maxPieceBytes) throw BadFrame("a piece of a frame is too long");
    return {.kind = static_cast<Kind>(kind),
            .hasMore = (flags & moreFlag) != 0,
            .mayBeLost = (flags & lossFlag) != 0,
            .headBytes = headBytes,
            .bodyBytes = length - least,
            .id = getLittleEndian<std::uint64_t>(bytes.data() + 8)};
}

}  // namespace links
