#pragma once

/// What clients of notebook servers ask for of sessions. They see those whose kernel they may use.
/// Threads: any.

#include "jupyter/rest/Ask.h"

namespace gateway::jupyter {

/// GET, POST.
void sessions(const Ask& ask, Done done);
/// GET, PATCH, DELETE.
void session(const Ask& ask, Done done);

}  // namespace gateway::jupyter
