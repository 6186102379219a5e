#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "connector/ThreadSafety.h"
#include "connector/interpreter/v1/CoalescingTextBuffer.h"
#include "support/threads.h"

namespace connector::interpreter::v1 {

constexpr auto out = nmutil::io::STANDARD_OUTPUT;
constexpr auto err = nmutil::io::STANDARD_ERROR;

/// A buffer whose time stands still until a test moves it.
class ManualTextBuffer : public CoalescingTextBuffer {
public:
    ~ManualTextBuffer() override { stop(); }

    /// Units: 100 ns since the test began.
    void setTime(std::int64_t ticks) { ticks_ = ticks; }
    /// Waits until the thread of the buffer has looked at the time that is set now and done what is due.
    void awaitLook() {
        const int wanted = looks_ + 2;  // the second look begins after the first has ended
        EXPECT_TRUE(eventually([&] { return looks_ >= wanted; }));
    }

protected:
    TimePoint getCurrentTime() override {
        if (std::this_thread::get_id() != testThread_) ++looks_;
        return TimePoint(std::chrono::hours(24 * 365)) + TimePoint::duration(ticks_);
    }

private:
    const std::thread::id testThread_ = std::this_thread::get_id();
    std::atomic<int> looks_{0};
    std::atomic<std::int64_t> ticks_{0};
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
        };
    }
    std::vector<Batch> all() const CONNECTOR_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        return batches_;
    }
    std::vector<Batch> await(std::size_t count) {
        EXPECT_TRUE(eventually([&] { return all().size() >= count; }));
        return all();
    }

private:
    mutable Mutex mutex_;
    std::vector<Batch> batches_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace connector::interpreter::v1
