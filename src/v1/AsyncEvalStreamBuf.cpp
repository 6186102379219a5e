#include "connector/interpreter/v1/AsyncEvalStreamBuf.h"

namespace connector::interpreter::v1 {

AsyncEvalStreamBuf::int_type AsyncEvalStreamBuf::overflow(int_type unit) {
    const char16_t text = traits_type::to_char_type(unit);
    if (active_) buffer_.append(&text, 1, type_);
    return unit;
}

std::streamsize AsyncEvalStreamBuf::xsputn(const char16_t* text, std::streamsize count) {
    if (active_ && count > 0) buffer_.append(text, static_cast<std::size_t>(count), type_);
    return count;
}

}  // namespace connector::interpreter::v1
