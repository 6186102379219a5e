#pragma once

#include <memory>

#include "zvm/ZVM.h"

namespace zvm {

class Factory {
public:
    /// The current local interpreter, or null when none is running.  Threads: any.
    static std::shared_ptr<ZVM> getCurrentLocalZVM();
};

class ProcessSession {
public:
    /// The process's session, or null when no environment is installed.  Threads: any.
    static std::shared_ptr<Session> session();
};

}  // namespace zvm
