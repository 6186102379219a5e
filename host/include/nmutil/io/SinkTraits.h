#pragma once

namespace nmutil::io {

/// What a sink that is made from a bare stream buffer supports.
struct SinkTraits {
    bool supportsMore = false;
    bool supportsHotlinks = false;
};

}  // namespace nmutil::io
