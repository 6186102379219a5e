#pragma once

/// The kinds of kernels that notebook clients may start.  Threads: any.

#include "jupyter/rest/Ask.h"

namespace gateway::jupyter {

/// Whether whoever asks may have an interpreter made: one of a name that fits its token.
bool mayMake(const Ask& ask);

void kernelSpecs(const Ask& ask, Done done);
void kernelSpec(const Ask& ask, Done done);
void logo(const Ask& ask, Done done);

}  // namespace gateway::jupyter
