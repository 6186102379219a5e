#pragma once

#include <cstdint>
#include <memory>

#include "connector/common/ContextState.h"

namespace connector::interpreter::v1 {

/// Keeps the context on the host's stack, and current on this thread, for as long as a request is being
/// handled.
class RequestContextScope {
public:
    explicit RequestContextScope(const std::shared_ptr<common::ContextState>& context)
        : handle_(zvm_common::pushContextState(context)), current_(context, handle_) {}
    ~RequestContextScope() { zvm_common::removeContextState(handle_); }
    RequestContextScope(const RequestContextScope&) = delete;
    RequestContextScope& operator=(const RequestContextScope&) = delete;

private:
    const std::uint64_t handle_;
    const common::CurrentContext current_;
};

}  // namespace connector::interpreter::v1
