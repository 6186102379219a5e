#include "Watcher.h"

#include <utility>

namespace messages {

using connector::MutexLock;

Watcher::Watcher(std::string pattern, MessageService::SubscribeHandler subscribed,
                 MessageService::UnsubscribeHandler unsubscribed)
    : pattern_(std::move(pattern)),
      subscribed_(std::move(subscribed)),
      unsubscribed_(std::move(unsubscribed)) {}

void Watcher::add(Notice notice) {
    MutexLock lock(mutex_);
    notices_.push_back(std::move(notice));
    ++added_;
}

void Watcher::start() { tellAll(); }

void Watcher::tell() {
    {
        MutexLock lock(mutex_);
        if (isTelling_) {
            // Inside a handler, the thread that tells may be this very one, or one that waits for it.
            if (HandlerGate::isInHandler()) return;
            const auto last = added_;
            while (told_ < last) progress_.wait(lock.native());
            return;
        }
        isTelling_ = true;
    }
    tellAll();
}

void Watcher::tellAll() {
    for (;;) {
        Notice notice;
        {
            MutexLock lock(mutex_);
            if (notices_.empty()) {
                isTelling_ = false;
                return;
            }
            notice = std::move(notices_.front());
            notices_.pop_front();
        }
        gate_.run([&] { call(notice); });
        MutexLock lock(mutex_);
        ++told_;
        progress_.notify_all();
    }
}

void Watcher::call(const Notice& notice) {
    if (notice.isSubscribed) {
        subscribed_({notice.channel, notice.clientId, notice.clientType});
    } else {
        unsubscribed_({notice.channel, notice.clientId, notice.clientType});
    }
}

}  // namespace messages
