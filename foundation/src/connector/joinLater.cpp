#include "connector/joinLater.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "connector/ThreadSafety.h"

namespace connector {

namespace {

/// Threads without an owner.  Locks: mutex_, not held while one is joined.
class KeptThreads {
public:
    ~KeptThreads() {
        for (Kept& kept : kept_) kept.thread.join();
    }

    void add(std::thread thread, std::weak_ptr<const void> work) {
        std::vector<Kept> ended;
        {
            const MutexLock lock(mutex_);
            const auto isUnderWay = [](const Kept& kept) { return !kept.work.expired(); };
            const auto firstEnded = std::stable_partition(kept_.begin(), kept_.end(), isUnderWay);
            ended.assign(std::move_iterator(firstEnded), std::move_iterator(kept_.end()));
            kept_.erase(firstEnded, kept_.end());
            kept_.push_back({std::move(thread), std::move(work)});
        }
        for (Kept& kept : ended) kept.thread.join();
    }

private:
    struct Kept {
        std::thread thread;
        std::weak_ptr<const void> work;
    };

    Mutex mutex_;
    std::vector<Kept> kept_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace

void joinLater(std::thread thread, std::weak_ptr<const void> work) {
    static KeptThreads threads;  // one for all, because those that need it have no owner left
    threads.add(std::move(thread), std::move(work));
}

}  // namespace connector
