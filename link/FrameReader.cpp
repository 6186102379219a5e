#include "link/FrameReader.h"

#include <algorithm>

#include "FrameHeader.h"

namespace links {

namespace {

constexpr std::size_t maxUnfinished = 64;

void moveBytes(std::string_view& from, std::string& to, std::size_t& left) {
    const std::size_t count = std::min(left, from.size());
    to.append(from.data(), count);
    from.remove_prefix(count);
    left -= count;
}

}  // namespace

void FrameReader::feed(std::string_view bytes, const Take& take) {
    while (frame_ != nullptr || readHeader(bytes)) {
        moveBytes(bytes, frame_->head, headLeft_);
        moveBytes(bytes, frame_->body, bodyLeft_);
        if (headLeft_ + bodyLeft_ > 0) return;
        endPiece(take);
    }
}

bool FrameReader::readHeader(std::string_view& bytes) {
    const std::size_t count = std::min(header_.size() - headerRead_, bytes.size());
    std::copy_n(bytes.data(), count, header_.data() + headerRead_);
    bytes.remove_prefix(count);
    headerRead_ += count;
    if (headerRead_ < header_.size()) return false;
    headerRead_ = 0;
    beginPiece(FrameHeader::decode(header_));
    return true;
}

void FrameReader::beginPiece(const FrameHeader& header) {
    hasMore_ = header.hasMore;
    headLeft_ = header.headBytes;
    bodyLeft_ = header.bodyBytes;
    const auto found = unfinished_.empty() ? unfinished_.end() : unfinished_.find({header.kind, header.id});
    if (found != unfinished_.end() || hasMore_) {
        unfinishedBytes_ += bodyLeft_;
        if (unfinishedBytes_ > maxBodyBytes) throw BadFrame("unfinished frames are too long");
    }
    if (found == unfinished_.end()) {
        if (hasMore_ && unfinished_.size() == maxUnfinished) throw BadFrame("too many frames are unfinished");
        first_ = {.kind = header.kind, .id = header.id, .mayBeLost = header.mayBeLost};
        first_.head.reserve(headLeft_);
        first_.body.reserve(bodyLeft_);
        frame_ = &first_;
        return;
    }
    frame_ = &found->second;
    if (headLeft_ > 0) throw BadFrame("a later piece of a frame has a head");
}

void FrameReader::endPiece(const Take& take) {
    const Key key{frame_->kind, frame_->id};
    const bool isFirst = std::exchange(frame_, nullptr) == &first_;
    if (hasMore_) {
        if (isFirst) unfinished_.emplace(key, std::move(first_));
    } else if (isFirst) {
        take(std::move(first_));
    } else {
        auto whole = std::move(unfinished_.extract(key).mapped());
        unfinishedBytes_ -= whole.body.size();
        take(std::move(whole));
    }
}

}  // namespace links
