#include "v1/SequenceWorkers.h"

#include <stdexcept>
#include <utility>

namespace connector::interpreter::v1 {

void SequenceWorkers::start() {
    MutexLock lock(mutex_);
    stopped_ = false;
}

void SequenceWorkers::stop() {
    std::vector<std::thread> threads;
    {
        MutexLock lock(mutex_);
        stopped_ = true;
        threads.swap(threads_);
    }
    wake_.notify_all();
    for (std::thread& thread : threads) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();  // it cannot join itself; it holds this object until it ends
        } else {
            thread.join();
        }
    }
}

void SequenceWorkers::post(Task task) {
    MutexLock lock(mutex_);
    if (stopped_) throw std::runtime_error("Service exists but is not running.");
    tasks_.push_back(std::move(task));
    if (tasks_.size() > idle_ && threads_.size() < maxThreads) startThreadLocked();
    wake_.notify_one();
}

bool SequenceWorkers::isStopped() const {
    MutexLock lock(mutex_);
    return stopped_;
}

void SequenceWorkers::startThreadLocked() {
    try {
        threads_.emplace_back([self = shared_from_this()] { self->work(); });
    } catch (...) {
        if (!threads_.empty()) return;  // those will come to the task
        tasks_.pop_back();
        throw;
    }
}

void SequenceWorkers::work() {
    MutexLock lock(mutex_);
    for (;;) {
        ++idle_;
        while (tasks_.empty() && !stopped_) wake_.wait(lock.native());
        --idle_;
        if (tasks_.empty()) return;
        Task task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        task = nullptr;
        lock.lock();
    }
}

}  // namespace connector::interpreter::v1
