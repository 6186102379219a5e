#pragma once

#include <cstdint>
#include <memory>

#include "connector/common/ContextState.h"

namespace connector::zvm_common {

/// Keeps `context` for a request that is on its way to the interpreter thread, and returns a handle for it,
/// never 0.  Threads: any.
std::uint64_t pushContextState(std::shared_ptr<common::ContextState> context);

/// The context that is kept under `handle`; null when there is none.  Threads: any.
std::shared_ptr<common::ContextState> findContextState(std::uint64_t handle);

/// Takes the context out again; null when there is none under `handle`.  Threads: any.
std::shared_ptr<common::ContextState> removeContextState(std::uint64_t handle);

}  // namespace connector::zvm_common
