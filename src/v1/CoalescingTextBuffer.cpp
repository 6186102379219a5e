#include "connector/interpreter/v1/CoalescingTextBuffer.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <optional>
#include <utility>

#include <cxxabi.h>

#include "connector/json/escape.h"
#include "fl/i18n/text.h"
#include "v1/BatchOrder.h"
#include "v1/OutputLog.h"
#include "v1/log.h"

namespace connector::interpreter::v1 {

using connector::common::DataBuffer;
using nmutil::io::StreamTypeEnum;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds batchAge{145};
constexpr std::chrono::milliseconds loopInterval{150};

Clock::time_point nextLook() {
    const auto now = Clock::now();
    return now > Clock::time_point::max() - loopInterval ? Clock::time_point::max() : now + loopInterval;
}

// The pieces that this thread has added to any buffer.
thread_local std::uint64_t ownPieces = 0;

void call(const CoalescingTextBuffer::Callback& callback, DataBuffer batch, StreamTypeEnum type) {
    try {
        callback(std::move(batch), type);
    } catch (const abi::__forced_unwind&) {
        throw;  // the thread ends
    } catch (const std::exception& error) {
        asyncLog().error(std::string("Caught exception in Coalescer callback:") + error.what());
    } catch (...) {
        asyncLog().error("Caught unknown exception in Coalescer callback");
    }
}

}  // namespace

struct CoalescingTextBuffer::Batch {
    Callback callback;  ///< null where there is nothing to deliver
    DataBuffer text;
    StreamTypeEnum type = nmutil::io::STANDARD_OUTPUT;
    std::shared_ptr<common::ContextState> context;
    std::optional<BatchOrder::Place> place;  ///< where batches are delivered in order
};

CoalescingTextBuffer::CoalescingTextBuffer()
    : order_(std::make_unique<BatchOrder>()), outputLog_(std::make_unique<OutputLog>()) {
    thread_ = std::thread([this] { coalescerLoop(); });
}

CoalescingTextBuffer::~CoalescingTextBuffer() { stop(); }

void CoalescingTextBuffer::stop() {
    outputLog_->close();
    Callback callback;  // ends after the lock
    {
        MutexLock lock(mutex_);
        callback.swap(callback_);
        running_ = false;
    }
    condition_.notify_one();
    if (thread_.joinable()) thread_.join();
}

void CoalescingTextBuffer::append(std::u16string&& text, StreamTypeEnum type) { appendText(text, type); }

void CoalescingTextBuffer::append(const char16_t* text, std::size_t length, StreamTypeEnum type) {
    appendText({text, length}, type);
}

void CoalescingTextBuffer::appendText(std::u16string_view text, StreamTypeEnum type) {
    outputLog_->write(text);
    if (text.empty()) return;
    const std::uint64_t before = ++ownPieces;
    auto context = common::ContextState::currentOrNull();
    MutexLock lock(mutex_);
    if (isOfOther(type, context)) doFlush(lock);
    // Other threads may have printed on the stream meanwhile. That is kept apart, too; what the callback has
    // printed is not, or the two could go on for ever.
    Batch others;
    if (isOfOther(type, context) && ownPieces == before) others = takeBatch();
    currentStream_ = type;
    currentContext_.swap(context);  // the old one goes after the lock
    const bool wakes = pending_.empty();
    if (wakes) batchStart_ = getCurrentTime();
    if (dduxEnabled_) appendDduxData(fl::i18n::to_string(text));
    json::appendEscaped(pending_, text);
    // While text is pending the thread waits for a time, not for more of it.
    if (wakes) condition_.notify_one();
    deliver(std::move(others), lock);
}

bool CoalescingTextBuffer::isOfOther(StreamTypeEnum type,
                                     const std::shared_ptr<common::ContextState>& context) const {
    return !pending_.empty() && (type != currentStream_ || context != currentContext_);
}

void CoalescingTextBuffer::flush() {
    {
        MutexLock lock(mutex_);
        doFlush(lock);
        condition_.notify_one();
        if (!isOrdered_) return;
    }
    order_->await();
}

void CoalescingTextBuffer::deliverInOrder() {
    MutexLock lock(mutex_);
    isOrdered_ = true;
}

void CoalescingTextBuffer::clear() {
    std::shared_ptr<common::ContextState> context;  // goes after the lock
    MutexLock lock(mutex_);
    pending_.clear();
    context.swap(currentContext_);
    condition_.notify_one();
}

void CoalescingTextBuffer::setCallback(Callback&& callback) {
    Callback next(std::move(callback));  // the old one, in the end: it goes without the lock
    MutexLock lock(mutex_);
    callback_.swap(next);
}

void CoalescingTextBuffer::setDduxEnabled(bool enabled) {
    MutexLock lock(mutex_);
    dduxEnabled_ = enabled;
}

void CoalescingTextBuffer::appendDduxData(const std::string& utf8) {
    if (dduxEnabled_ && utf8.size() <= maxDduxText - dduxText_.size()) dduxText_ += utf8;
}

void CoalescingTextBuffer::appendDduxDataForSuggestion(const std::u16string& suggestion) {
    MutexLock lock(mutex_);
    if (dduxEnabled_) appendDduxData("Did you mean: " + fl::i18n::to_string(suggestion) + " ?");
}

void CoalescingTextBuffer::clearDduxData() {
    MutexLock lock(mutex_);
    dduxText_.clear();
}

CoalescingTextBuffer::TimePoint CoalescingTextBuffer::getCurrentTime() {
    return std::chrono::time_point_cast<TimePoint::duration>(std::chrono::system_clock::now());
}

void CoalescingTextBuffer::coalescerLoop() {
    MutexLock lock(mutex_);
    while (running_) {
        if (pending_.empty()) {
            condition_.wait(lock.native());
            continue;
        }
        deliverIfDue(lock);
        if (pending_.empty()) continue;
        const auto deadline = nextLook();
        while (running_ && condition_.wait_until(lock.native(), deadline) == std::cv_status::no_timeout) {
        }
    }
}

void CoalescingTextBuffer::deliverIfDue(MutexLock& lock) {
    try {
        if (getCurrentTime() - batchAge >= batchStart_) doCallback(lock);
    } catch (const std::exception& error) {
        lock.unlock();
        asyncLog().error(std::string("Output stays pending: ") + error.what());
        lock.lock();
    }
}

void CoalescingTextBuffer::doFlush(MutexLock& lock) {
    batchStart_ = {};
    doCallback(lock);
}

void CoalescingTextBuffer::doCallback(MutexLock& lock) { deliver(takeBatch(), lock); }

CoalescingTextBuffer::Batch CoalescingTextBuffer::takeBatch() {
    Batch batch{
        .callback = {}, .text = {}, .type = currentStream_, .context = nullptr, .place = std::nullopt};
    if (pending_.empty() || !callback_) return batch;
    batch.context = std::move(currentContext_);
    batch.text.reserve(pending_.size() + 2);
    batch.text.push_back('"');
    batch.text.append(pending_.view());
    batch.text.push_back('"');
    batch.callback = callback_;
    if (isOrdered_) batch.place.emplace(order_->next());
    pending_.clear();  // keeps its storage
    return batch;
}

void CoalescingTextBuffer::deliver(Batch batch, MutexLock& lock) {
    if (!batch.callback) return;
    const auto deliverBatch = [&batch] {
        const common::CurrentContext context(std::move(batch.context));
        call(batch.callback, std::move(batch.text), batch.type);
        batch.callback = nullptr;  // what it holds goes without the lock, too
    };
    lock.unlock();
    if (batch.place) {
        order_->deliver(std::move(*batch.place), deliverBatch);
    } else {
        deliverBatch();
    }
    lock.lock();
}

}  // namespace connector::interpreter::v1
