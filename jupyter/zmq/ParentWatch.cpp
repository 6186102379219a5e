#include "jupyter/zmq/ParentWatch.h"

#include <chrono>
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

void watchParent(Executor& executor, std::function<void()> gone) {
    lookLater(executor, ::getppid(), std::move(gone));
}

}  // namespace jupyter
