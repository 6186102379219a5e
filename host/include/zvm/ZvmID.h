#pragma once

#include <cstdint>

namespace zvm {

/// Names one interpreter virtual machine of the process.
using ZvmID = std::uint64_t;

}  // namespace zvm
