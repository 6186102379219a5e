#pragma once

#include <string>
#include <utility>

#include "nmutil/io/TextBase.h"

namespace nmutil::io {

/// Text was printed that belongs to no request, and so to the command window of the environment.
class SinkTextEvent : public TextBase {
public:
    static constexpr const char16_t* typeName = u"nmutil::io::SinkTextEvent";
    SinkTextEvent(std::u16string text, StreamTypeEnum stream)
        : TextBase({typeName}, std::move(text), stream) {}
};

}  // namespace nmutil::io
