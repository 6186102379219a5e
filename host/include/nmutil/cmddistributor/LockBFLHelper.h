#pragma once

#include "host/Environment.h"

namespace nmutil::cmddistributor {

/// Holds the interpreter's lock while it is in scope; scopes nest. Does nothing where no environment is
/// installed.
///
/// Threads: any; scopes end on the thread on which they began, before the environment is taken away. Blocks:
/// while another thread holds the lock. Locks: that comes first; none of this system's mutexes may be held.
class LockBFLHelper {
public:
    LockBFLHelper() : environment_(host::installedEnvironment()) {
        if (environment_ != nullptr) state_ = environment_->acquireLock();
    }
    ~LockBFLHelper() {
        if (environment_ != nullptr) environment_->releaseLock(state_);
    }
    LockBFLHelper(const LockBFLHelper&) = delete;
    LockBFLHelper& operator=(const LockBFLHelper&) = delete;

private:
    host::Environment* const environment_;
    int state_ = 0;
};

}  // namespace nmutil::cmddistributor
