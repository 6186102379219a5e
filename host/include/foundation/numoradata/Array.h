#pragma once

#include "matrix/mxArray.h"

namespace foundation::numoradata {

/// The name of an interpreter array among the host's data types.
using Array = ::mxArray;

}  // namespace foundation::numoradata
