#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/any.hpp>

#include "connector/ThreadSafety.h"

namespace connector::common {

/// How far a context value goes.
enum class ContextScope {
    Request,  ///< it stays with the request
    Client,   ///< it also goes with what the request causes
};

/// What is known of the request that is being handled: named values beside its message.
///
/// Threads: every operation from any thread.  Locks: mutex_.
class ContextState {
public:
    bool has(std::string_view key) const CONNECTOR_EXCLUDES(mutex_);
    /// The value, or an empty one.
    boost::any get(std::string_view key) const CONNECTOR_EXCLUDES(mutex_);
    void set(std::string_view key, boost::any value, ContextScope scope = ContextScope::Request)
        CONNECTOR_EXCLUDES(mutex_);

    /// The value if it is there and is a `T`, else `otherwise`.
    template <class T>
    T getOr(std::string_view key, T otherwise) const CONNECTOR_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        const Entry* const entry = findLocked(key);
        const T* held = entry != nullptr ? boost::any_cast<T>(&entry->value) : nullptr;
        return held != nullptr ? *held : otherwise;
    }

    /// The context of what this thread is handling. Never null: an empty one where none was set.
    static std::shared_ptr<ContextState> current();
    /// The same, but null where none was set.
    static std::shared_ptr<ContextState> currentOrNull();
    /// The handle under which zvm_common::pushContextState keeps it; 0 where it does not.
    static std::uint64_t currentHandle();

private:
    struct Entry {
        std::string key;
        boost::any value;
        ContextScope scope;
    };

    const Entry* findLocked(std::string_view key) const CONNECTOR_REQUIRES(mutex_);

    mutable Mutex mutex_;
    std::vector<Entry> values_ CONNECTOR_GUARDED_BY(mutex_);  ///< a few
};

/// Makes a context the current one of this thread while it is in scope; scopes nest. Null stands for an empty
/// one.
class CurrentContext {
public:
    explicit CurrentContext(std::shared_ptr<ContextState> context, std::uint64_t handle = 0);
    ~CurrentContext();
    CurrentContext(const CurrentContext&) = delete;
    CurrentContext& operator=(const CurrentContext&) = delete;

private:
    const std::shared_ptr<ContextState> previous_;
    const std::uint64_t previousHandle_;
};

}  // namespace connector::common

namespace connector::zvm_common {

/// Keeps `context` for a request that is on its way to the interpreter thread, and returns a handle for it,
/// never 0.  Threads: any.
std::uint64_t pushContextState(std::shared_ptr<common::ContextState> context);

/// The context that is kept under `handle`; null when there is none.  Threads: any.
std::shared_ptr<common::ContextState> findContextState(std::uint64_t handle);

/// Takes the context out again; null when there is none under `handle`.  Threads: any.
std::shared_ptr<common::ContextState> removeContextState(std::uint64_t handle);

}  // namespace connector::zvm_common
