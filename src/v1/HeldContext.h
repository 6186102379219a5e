#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "connector/common/ContextState.h"

namespace connector::interpreter::v1 {

/// Keeps the context of a request on the host's stack for as long as the request is under way, wherever it
/// is. Move-only.
class HeldContext {
public:
    explicit HeldContext(std::shared_ptr<common::ContextState> context)
        : handle_(zvm_common::pushContextState(std::move(context))) {}
    /// Takes over what is held under `handle`.
    explicit HeldContext(std::uint64_t handle) : handle_(handle) {}
    HeldContext(HeldContext&& other) noexcept : handle_(other.release()) {}
    HeldContext& operator=(HeldContext&&) = delete;
    HeldContext(const HeldContext&) = delete;
    HeldContext& operator=(const HeldContext&) = delete;
    ~HeldContext() {
        if (handle_ != 0) zvm_common::removeContextState(handle_);
    }

    /// Leaves the context to whoever takes the handle.
    std::uint64_t release() { return std::exchange(handle_, 0); }

private:
    std::uint64_t handle_;
};

}  // namespace connector::interpreter::v1
