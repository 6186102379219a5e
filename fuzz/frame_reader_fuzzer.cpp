// Bytes of a link: frames are the same however the bytes are split, a wrong one is refused at the same place,
// and frames that were read and are sent again are read as the same frames.
//
// The first byte says where the bytes are split.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "FrameQueue.h"
#include "link/FrameReader.h"

using links::Frame;
using links::FrameQueue;
using links::FrameReader;

namespace {

struct Result {
    std::vector<Frame> frames;
    std::string problem;
};

Result read(std::string_view bytes, std::size_t step) {
    Result result;
    FrameReader reader;
    try {
        for (; !bytes.empty(); bytes.remove_prefix(std::min(step, bytes.size()))) {
            reader.feed(bytes.substr(0, step),
                        [&](Frame&& frame) { result.frames.push_back(std::move(frame)); });
        }
    } catch (const links::BadFrame& error) {
        result.problem = error.what();
    }
    return result;
}

std::string written(const std::vector<Frame>& frames) {
    FrameQueue queue;
    for (const Frame& frame : frames) queue.push(Frame(frame));
    std::string bytes;
    std::vector<std::string> done;
    while (!queue.isEmpty()) {
        FrameQueue::Parts storage;
        std::size_t size = 0;
        for (const iovec& part : queue.next(storage)) {
            bytes.append(static_cast<const char*>(part.iov_base), part.iov_len);
            size += part.iov_len;
        }
        queue.consume(size, done);
    }
    return bytes;
}

void check(const std::vector<Frame>& frames, const std::vector<Frame>& others) {
    if (frames.size() != others.size()) std::abort();
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const Frame& a = frames[i];
        const Frame& b = others[i];
        if (a.kind != b.kind || a.id != b.id || a.mayBeLost != b.mayBeLost || a.head != b.head ||
            a.body != b.body) {
            std::abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const Result whole = read(bytes, std::max<std::size_t>(bytes.size(), 1));
    const Result split = read(bytes, std::size_t{1} + data[0]);
    if (whole.problem != split.problem) std::abort();
    check(whole.frames, split.frames);
    check(whole.frames, read(written(whole.frames), links::maxPieceBytes).frames);
    return 0;
}
