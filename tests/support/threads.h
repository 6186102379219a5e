#pragma once

#include <barrier>
#include <chrono>
#include <functional>
#include <latch>
#include <thread>
#include <vector>

/// Starts all of `actions` at the same time, each on a thread of its own, and waits for their end.
inline void race(const std::vector<std::function<void()>>& actions) {
    std::barrier start(static_cast<std::ptrdiff_t>(actions.size()));
    std::vector<std::jthread> threads;
    threads.reserve(actions.size());
    for (const auto& action : actions) {
        threads.emplace_back([&start, &action] {
            start.arrive_and_wait();
            action();
        });
    }
}

/// The same for `count` threads that do `action`, each with its number from 0.
inline void onThreads(int count, const std::function<void(int number)>& action) {
    std::vector<std::function<void()>> actions;
    for (int number = 0; number < count; ++number) actions.emplace_back([&, number] { action(number); });
    race(std::move(actions));
}

/// Waits, with a deadline as a fail-safe, until `condition` holds. False when it has not come to that.
inline bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

/// Holds up a thread, once, until the test lets it go on.
class Gate {
public:
    void pass() {
        entered_.count_down();
        mayLeave_.wait();
    }
    /// Waits until the other thread is inside.
    void awaitEntry() const { entered_.wait(); }
    void open() { mayLeave_.count_down(); }

private:
    std::latch entered_{1};
    std::latch mayLeave_{1};
};
