#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "connector/ThreadSafety.h"
#include "connector/WorkerPool.h"
#include "interpreters/Desk.h"
#include "ports/InterpreterSpec.h"

namespace gateway::interpreters {

/// Why an interpreter is not made, ended or given. what() is for the client.
class Refusal : public std::runtime_error {
public:
    Refusal(int status, const std::string& reason) : std::runtime_error(reason), status_(status) {}
    int status() const { return status_; }  ///< of HTTP

private:
    int status_;
};

/// The interpreters of a server by their ids.
///
///     id is free -- create --> in use -- remove --> ending, still in use -- stopped --> id is free
///                                                                              '--> retired --> destroyed
///
/// A desk that was removed is destroyed by a later `create` or `remove` which finds that nobody can use it
/// any more, or with this. It takes up a place until then, so that there are never more than `most`.
///
/// Threads: every operation from any thread, but `stop` and the destructor from one; destroyed when no thread
/// runs the io_context of the desks.  Locks: mutex_, a leaf; desks are made, stopped and destroyed without
/// it.
class Registry {
public:
    using MakeDesk = std::function<std::unique_ptr<Desk>(const ports::InterpreterSpec&)>;
    using Desks = std::vector<std::shared_ptr<Desk>>;

    /// The one that today's paths mean, and which cannot be removed.
    static constexpr std::string_view defaultId = "default";

    /// `makeDesk` may throw a Refusal.
    Registry(MakeDesk makeDesk, std::size_t most);
    /// Stops.
    ~Registry();
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;

    /// Throws: Refusal: 409 the id is in use; 429 there are too many; 503 this is stopped; and as `makeDesk`.
    std::shared_ptr<Desk> create(const ports::InterpreterSpec& spec) CONNECTOR_EXCLUDES(mutex_);

    /// Null when there is none.
    std::shared_ptr<Desk> find(std::string_view id) const CONNECTOR_EXCLUDES(mutex_);
    /// All, by their ids.
    Desks all() const CONNECTOR_EXCLUDES(mutex_);

    /// From now on it is not found. `removed` is called when it has stopped, on another thread.
    /// Throws: Refusal: 403 for the default one; 404.
    void remove(std::string_view id, std::function<void()> removed) CONNECTOR_EXCLUDES(mutex_);

    /// Stops all of them at the same time.  Blocks: as long as the slowest.
    void stop() CONNECTOR_EXCLUDES(mutex_);
    /// Destroys all, when no thread runs their io_context any more.
    void clear() CONNECTOR_EXCLUDES(mutex_);

private:
    void retire(const std::shared_ptr<Desk>& desk) CONNECTOR_EXCLUDES(mutex_);
    Desks takeUnused() CONNECTOR_EXCLUDES(mutex_);
    void reserve(const std::string& id) CONNECTOR_EXCLUDES(mutex_);

    const MakeDesk makeDesk_;
    const std::size_t most_;

    mutable connector::Mutex mutex_;
    bool isStopped_ CONNECTOR_GUARDED_BY(mutex_) = false;
    /// Null for one that is being made or is ending.
    std::map<std::string, std::shared_ptr<Desk>, std::less<>> desks_ CONNECTOR_GUARDED_BY(mutex_);
    Desks retired_ CONNECTOR_GUARDED_BY(mutex_);

    connector::WorkerPool endings_;  // last: its tasks use the rest
};

/// The reason why there is no such interpreter.
std::string noSuchInterpreter(std::string_view id);

}  // namespace gateway::interpreters
