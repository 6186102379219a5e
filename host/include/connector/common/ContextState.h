#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

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
    bool has(const std::string& key) const EXCLUDES(mutex_);
    /// The value, or an empty one.
    boost::any get(const std::string& key) const EXCLUDES(mutex_);
    void set(const std::string& key, boost::any value, ContextScope scope = ContextScope::Request)
        EXCLUDES(mutex_);

    /// The value if it is there and is a `T`, else `otherwise`.
    template <class T>
    T getOr(const std::string& key, T otherwise) const {
        const boost::any value = get(key);
        const T* held = boost::any_cast<T>(&value);
        return held ? *held : otherwise;
    }

    /// The context of what this thread is handling. Never null: an empty one where none was set.
    static std::shared_ptr<ContextState> current();
    /// The same, but null where none was set.
    static std::shared_ptr<ContextState> currentOrNull();
    /// The handle under which zvm_common::pushContextState keeps it; 0 where it does not.
    static std::uint64_t currentHandle();

private:
    struct Entry {
        boost::any value;
        ContextScope scope;
    };

    mutable Mutex mutex_;
    std::unordered_map<std::string, Entry> values_ GUARDED_BY(mutex_);
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
