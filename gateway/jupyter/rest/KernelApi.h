#pragma once

/// What clients of notebook servers ask for of kernels, which are the interpreters: docs/gateway.md. Rights
/// for the kernel that a path names are judged before, but for those to end it.  Threads: any.

#include <memory>
#include <string>
#include <string_view>

#include "jupyter/rest/Ask.h"

namespace gateway::jupyter {

void version(const Ask& ask, Done done);
void status(const Ask& ask, Done done);
/// GET, POST.
void kernels(const Ask& ask, Done done);
/// GET, DELETE.
void kernel(const Ask& ask, Done done);
void interruptKernel(const Ask& ask, Done done);
/// Answers when the new process takes requests.
void restartKernel(const Ask& ask, Done done);

/// Ends the interpreter of a kernel that was made for a client of these paths; lets go of all others.
void endKernel(const Ask& ask, const std::shared_ptr<interpreters::Desk>& desk, Done done);

/// The interpreter whose kernel has this id; null when there is none.
std::shared_ptr<interpreters::Desk> kernelNamed(const interpreters::Registry& registry, std::string_view id);
std::string noSuchKernel(std::string_view id);

}  // namespace gateway::jupyter
