#pragma once

#include "nmutil/io/NMSink.h"

namespace connector::interpreter::v1 {

/// Takes any text and keeps none.  Threads: any.
class DiscardingStreamBuf : public nmutil::io::UnicodeStreamBuf {
protected:
    std::streamsize xsputn(const char16_t*, std::streamsize count) override { return count; }
    int_type overflow(int_type unit) override { return traits_type::not_eof(unit); }
};

}  // namespace connector::interpreter::v1
