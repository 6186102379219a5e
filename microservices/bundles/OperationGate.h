#pragma once

#include <condition_variable>
#include <thread>

#include "connector/ThreadSafety.h"

namespace cppmicroservices::detail {

/// Lets one thread at a time start or stop a bundle, so that its activator is never entered twice at once.
///
/// Threads: any.  Locks: mutex_, a leaf, which is not held while a thread is inside.
class OperationGate {
public:
    /// Is inside while in scope.
    class Entry {
    public:
        /// Blocks: until no other thread is inside.
        /// Throws: std::runtime_error, when this thread is: it could only wait for itself.
        explicit Entry(OperationGate& gate) : gate_(gate) { gate_.enter(); }
        ~Entry() { gate_.leave(); }
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

    private:
        OperationGate& gate_;
    };

private:
    void enter() EXCLUDES(mutex_);
    void leave() EXCLUDES(mutex_);

    connector::Mutex mutex_;
    std::condition_variable left_;
    std::thread::id inside_ GUARDED_BY(mutex_);
};

}  // namespace cppmicroservices::detail
