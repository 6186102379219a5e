#pragma once

#include <cerrno>
#include <chrono>
#include <ctime>

#include <semaphore.h>

namespace connector {

/// What a thread sleeps on until another one posts. A post and the wait for it are one system call each; with
/// a condition variable the woken thread also has to take a mutex again, and to wake whoever may want it.
///
/// Threads: every operation from any thread. It may be destroyed by the thread that a post has woken, while
/// that post is still returning.
class Semaphore {
public:
    Semaphore() noexcept { sem_init(&semaphore_, 0, 0); }
    ~Semaphore() { sem_destroy(&semaphore_); }
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    void post() noexcept { sem_post(&semaphore_); }
    /// Takes one post.  Blocks: until there is one.
    void wait() noexcept {
        while (sem_wait(&semaphore_) != 0 && errno == EINTR) {
        }
    }
    /// The same, but false when there is none until `deadline`.
    bool waitUntil(std::chrono::steady_clock::time_point deadline) noexcept {
        using std::chrono::seconds;
        const auto time = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline.time_since_epoch());
        const timespec end{.tv_sec = static_cast<std::time_t>(time / seconds(1)),
                           .tv_nsec = static_cast<long>((time % seconds(1)).count())};
        int result = 0;
        do {
            result = sem_clockwait(&semaphore_, CLOCK_MONOTONIC, &end);
        } while (result != 0 && errno == EINTR);
        return result == 0;
    }

private:
    sem_t semaphore_;
};

}  // namespace connector
