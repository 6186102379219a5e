#pragma once

/// Which mutex is taken under which, noted where the thread sanitizer of g++ watches; elsewhere these classes
/// are empty.
///
/// At the end of the process the pairs go to the file that NUMORA_LOCK_ORDER names, one "outer;inner" a line,
/// each mutex by the function that makes it. `scripts/check-locks` holds them against docs/locks.md.

#if defined(__SANITIZE_THREAD__)
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <mutex>
#include <set>
#include <source_location>
#include <string>
#include <utility>
#endif

namespace connector::detail {

#if defined(__SANITIZE_THREAD__)

/// Who makes a mutex: the constructor of the class that it is a member of.
class MutexOwner {
public:
    static constexpr MutexOwner current(std::source_location where = std::source_location::current()) {
        return MutexOwner(where.function_name());
    }
    const char* name() const { return name_; }

private:
    explicit constexpr MutexOwner(const char* name) : name_(name) {}
    const char* name_;
};

/// The pairs seen in this process. Never destroyed, since threads may take mutexes until the very end.
class LockOrder {
public:
    static LockOrder& instance() {
        static LockOrder& order = *new LockOrder;
        return order;
    }
    void note(const char* outer, const char* inner) {
        const std::lock_guard lock(mutex_);
        pairs_.emplace(outer, inner);
    }

private:
    LockOrder() {
        if (std::getenv("NUMORA_LOCK_ORDER") != nullptr) std::atexit([] { instance().write(); });
    }
    void write() {
        const std::lock_guard lock(mutex_);
        std::string lines;
        for (const auto& [outer, inner] : pairs_) lines.append(outer).append(";").append(inner).append("\n");
        // In one piece, since other processes may write to the file as well.
        std::ofstream(std::getenv("NUMORA_LOCK_ORDER"), std::ios::app) << lines;
    }

    std::mutex mutex_;
    std::set<std::pair<const char*, const char*>> pairs_;
};

/// That this thread holds a mutex.
class HeldMutex {
public:
    explicit HeldMutex(const MutexOwner& owner) : name_(owner.name()) { take(); }
    ~HeldMutex() {
        if (isTaken_) release();
    }
    HeldMutex(const HeldMutex&) = delete;
    HeldMutex& operator=(const HeldMutex&) = delete;

    void take() {
        Held& held = heldByThread();
        for (std::size_t i = 0; i < held.count; ++i) LockOrder::instance().note(held.names.at(i), name_);
        held.names.at(held.count++) = name_;
        isTaken_ = true;
    }
    void release() {
        Held& held = heldByThread();
        const auto end = held.names.begin() + static_cast<std::ptrdiff_t>(held.count--);
        const auto last = std::find(std::make_reverse_iterator(end), held.names.rend(), name_);
        std::copy(last.base(), end, std::prev(last.base()));
        isTaken_ = false;
    }

private:
    // Mutexes are taken until the very end of a thread, so this has no destructor.
    struct Held {
        std::array<const char*, 16> names;
        std::size_t count;
    };
    static Held& heldByThread() {
        thread_local constinit Held held{};
        return held;
    }

    const char* const name_;
    bool isTaken_ = false;
};

#else

struct MutexOwner {
    static constexpr MutexOwner current() { return {}; }
};

struct HeldMutex {
    explicit HeldMutex(const MutexOwner& /*owner*/) {}
    void take() {}
    void release() {}
};

#endif

}  // namespace connector::detail
