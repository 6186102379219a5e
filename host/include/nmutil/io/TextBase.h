#pragma once

#include <string>
#include <utility>

#include "foundation/msg_svc/eventmgr/BaseEvent.h"
#include "nmutil/io/StreamTypeEnum.h"

namespace nmutil::io {

/// An event that carries text of one stream, in UTF-16.
class TextBase : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    TextBase(foundation::msg_svc::eventmgr::TypeInformation type, std::u16string text, StreamTypeEnum stream)
        : BaseEvent(std::move(type)), text_(std::move(text)), stream_(stream) {}

    const std::u16string& getText() const { return text_; }
    StreamTypeEnum getStreamType() const { return stream_; }

private:
    std::u16string text_;
    StreamTypeEnum stream_;
};

}  // namespace nmutil::io
