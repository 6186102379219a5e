#include "jupyter/zmq/ParentWatch.h"

#include <chrono>
#include <cstdlib>
#include <utility>

#include <unistd.h>

namespace jupyter {

namespace {

void lookLater(Executor& executor, pid_t parent, std::function<void()> gone) {
    executor.postAfter(std::chrono::seconds(1), [&executor, parent, gone = std::move(gone)] {
        if (::getppid() != parent) return gone();
        lookLater(executor, parent, gone);
    });
}

}  // namespace

std::optional<pid_t> parentToWatch() {
    return std::getenv("JPY_PARENT_PID") != nullptr ? std::optional(::getppid()) : std::nullopt;
}

void watchParent(Executor& executor, std::optional<pid_t> parent, std::function<void()> gone) {
    if (parent) lookLater(executor, *parent, std::move(gone));
}

}  // namespace jupyter
