#pragma once

#include <ostream>
#include <string>
#include <tuple>

#include "FrameHeader.h"
#include "link/FrameReader.h"

namespace links {

inline bool operator==(const Frame& a, const Frame& b) {
    return std::tie(a.kind, a.id, a.mayBeLost, a.head, a.body) ==
           std::tie(b.kind, b.id, b.mayBeLost, b.head, b.body);
}

inline void PrintTo(const Frame& frame, std::ostream* out) {
    *out << static_cast<int>(frame.kind) << '/' << frame.id << ' ' << frame.head << ", " << frame.body.size()
         << " bytes";
}

/// One piece as it stands on the wire.
inline std::string piece(const Frame& frame, bool hasMore = false) {
    const FrameHeader header{.kind = frame.kind,
                             .hasMore = hasMore,
                             .mayBeLost = frame.mayBeLost,
                             .headBytes = frame.head.size(),
                             .bodyBytes = frame.body.size(),
                             .id = frame.id};
    const auto bytes = header.encode();
    return std::string(bytes.data(), bytes.size()) + frame.head + frame.body;
}

}  // namespace links
