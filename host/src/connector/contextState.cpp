#include "connector/common/ContextState.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace connector::common {

namespace {

thread_local std::shared_ptr<ContextState> currentContext;
thread_local std::uint64_t handleOfCurrent = 0;

}  // namespace

const ContextState::Entry* ContextState::findLocked(std::string_view key) const {
    const auto found = std::ranges::find(values_, key, &Entry::key);
    return found == values_.end() ? nullptr : &*found;
}

bool ContextState::has(std::string_view key) const {
    MutexLock lock(mutex_);
    return findLocked(key) != nullptr;
}

boost::any ContextState::get(std::string_view key) const {
    MutexLock lock(mutex_);
    const Entry* const entry = findLocked(key);
    return entry != nullptr ? entry->value : boost::any();
}

void ContextState::set(std::string_view key, boost::any value, ContextScope scope) {
    MutexLock lock(mutex_);
    if (const auto found = std::ranges::find(values_, key, &Entry::key); found != values_.end()) {
        found->value.swap(value);  // the old one goes without the lock
        found->scope = scope;
    } else {
        values_.push_back(Entry{std::string(key), std::move(value), scope});
    }
}

std::shared_ptr<ContextState> ContextState::current() {
    return currentContext ? currentContext : std::make_shared<ContextState>();
}

std::shared_ptr<ContextState> ContextState::currentOrNull() { return currentContext; }

std::uint64_t ContextState::currentHandle() { return handleOfCurrent; }

CurrentContext::CurrentContext(std::shared_ptr<ContextState> context, std::uint64_t handle)
    : previous_(std::exchange(currentContext, std::move(context))),
      previousHandle_(std::exchange(handleOfCurrent, handle)) {}

CurrentContext::~CurrentContext() {
    currentContext = previous_;
    handleOfCurrent = previousHandle_;
}

}  // namespace connector::common

namespace connector::zvm_common {

namespace {

struct Contexts {
    Mutex mutex;
    std::uint64_t last CONNECTOR_GUARDED_BY(mutex) = 0;
    std::unordered_map<std::uint64_t, std::shared_ptr<common::ContextState>> byHandle
        CONNECTOR_GUARDED_BY(mutex);
};

Contexts& contexts() {
    static Contexts instance;
    return instance;
}

}  // namespace

std::uint64_t pushContextState(std::shared_ptr<common::ContextState> context) {
    MutexLock lock(contexts().mutex);
    const std::uint64_t handle = ++contexts().last;
    contexts().byHandle.emplace(handle, std::move(context));
    return handle;
}

std::shared_ptr<common::ContextState> findContextState(std::uint64_t handle) {
    MutexLock lock(contexts().mutex);
    const auto found = contexts().byHandle.find(handle);
    return found == contexts().byHandle.end() ? nullptr : found->second;
}

std::shared_ptr<common::ContextState> removeContextState(std::uint64_t handle) {
    MutexLock lock(contexts().mutex);
    auto node = contexts().byHandle.extract(handle);
    return node ? std::move(node.mapped()) : nullptr;
}

}  // namespace connector::zvm_common
