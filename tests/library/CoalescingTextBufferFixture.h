#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "connector/ThreadSafety.h"
#include "connector/interpreter/v1/CoalescingTextBuffer.h"

namespace connector::interpreter::v1 {

constexpr auto out = nmutil::io::STANDARD_OUTPUT;
constexpr auto err = nmutil::io::STANDARD_ERROR;
constexpr std::chrono::seconds failSafe{20};

/// Waits once for a change, and fails the test when there is none.
inline bool awaitChange(std::condition_variable& changed, MutexLock& lock) {
    const bool happened = changed.wait_for(lock.native(), failSafe) == std::cv_status::no_timeout;
    EXPECT_TRUE(happened) << "nothing happens";
    return happened;
}

/// A buffer whose time stands still until a test moves it.
class ManualTextBuffer : public CoalescingTextBuffer {
public:
    ~ManualTextBuffer() override { stop(); }

    /// Units: 100 ns since the test began.
    void setTime(std::int64_t ticks) EXCLUDES(clockMutex_) {
        MutexLock lock(clockMutex_);
        now_ = start + TimePoint::duration(ticks);
    }
    /// Waits until the thread of the buffer has looked at the time that is set now and done what is due.
    void awaitLook() EXCLUDES(clockMutex_) {
        MutexLock lock(clockMutex_);
        // The second look begins after the first has ended.
        const int wanted = looks_ + 2;
        while (looks_ < wanted && awaitChange(looked_, lock)) {
        }
    }

protected:
    TimePoint getCurrentTime() override EXCLUDES(clockMutex_) {
        MutexLock lock(clockMutex_);
        if (std::this_thread::get_id() != testThread_) {
            ++looks_;
            looked_.notify_all();
        }
        return now_;
    }

private:
    static constexpr TimePoint start{std::chrono::hours(24 * 365)};

    const std::thread::id testThread_ = std::this_thread::get_id();
    Mutex clockMutex_;
    std::condition_variable looked_;
    int looks_ GUARDED_BY(clockMutex_) = 0;
    TimePoint now_ GUARDED_BY(clockMutex_) = start;
};

using Batch = std::pair<std::string, nmutil::io::StreamTypeEnum>;

/// Keeps what is delivered.  Threads: any.
class Batches {
public:
    CoalescingTextBuffer::Callback callback() {
        return [this](common::DataBuffer&& batch, nmutil::io::StreamTypeEnum type) {
            const common::DataBuffer taken(std::move(batch));
            MutexLock lock(mutex_);
            batches_.emplace_back(taken.view(), type);
            added_.notify_all();
        };
    }
    std::vector<Batch> all() const EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        return batches_;
    }
    std::vector<Batch> await(std::size_t count) EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        while (batches_.size() < count && awaitChange(added_, lock)) {
        }
        return batches_;
    }

private:
    mutable Mutex mutex_;
    std::condition_variable added_;
    std::vector<Batch> batches_ GUARDED_BY(mutex_);
};

}  // namespace connector::interpreter::v1
