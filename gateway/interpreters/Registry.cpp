#include "interpreters/Registry.h"

#include <utility>

namespace gateway::interpreters {

using connector::MutexLock;

namespace {

std::string inQuotes(std::string_view id) { return "\"" + std::string(id) + "\""; }

}  // namespace

std::string noSuchInterpreter(std::string_view id) { return "There is no interpreter " + inQuotes(id) + "."; }

Registry::Registry(MakeDesk makeDesk, std::size_t most)
    : makeDesk_(std::move(makeDesk)), most_(most), endings_(most, 0) {}

Registry::~Registry() { stop(); }

std::shared_ptr<Desk> Registry::create(const ports::InterpreterSpec& spec) {
    const std::string& id = spec.worker.id;
    takeUnused();
    reserve(id);
    std::shared_ptr<Desk> desk;
    try {
        desk = makeDesk_(spec);
        desk->start();
    } catch (...) {
        const MutexLock lock(mutex_);
        desks_.erase(id);
        throw;
    }
    {
        const MutexLock lock(mutex_);
        if (!isStopped_) return desks_[id] = desk;
    }
    desk->stop();
    retire(desk);
    throw Refusal(503, "The server is stopping.");
}

void Registry::reserve(const std::string& id) {
    const MutexLock lock(mutex_);
    if (isStopped_) throw Refusal(503, "The server is stopping.");
    if (const auto found = desks_.find(id); found != desks_.end()) {
        throw Refusal(409, "The interpreter " + inQuotes(id) +
                               (found->second ? " exists already." : " is just being made or deleted."));
    }
    if (desks_.size() + retired_.size() >= most_) {
        throw Refusal(429,
                      "There are " + std::to_string(most_) + " interpreters already, which is the most.");
    }
    desks_.emplace(id, nullptr);
}

std::shared_ptr<Desk> Registry::find(std::string_view id) const {
    const MutexLock lock(mutex_);
    const auto found = desks_.find(id);
    return found == desks_.end() ? nullptr : found->second;
}

Registry::Desks Registry::all() const {
    Desks all;
    const MutexLock lock(mutex_);
    for (const auto& [id, desk] : desks_) {
        if (desk) all.push_back(desk);
    }
    return all;
}

void Registry::remove(std::string_view id, std::function<void()> removed) {
    if (id == defaultId) throw Refusal(403, "The interpreter \"default\" cannot be deleted.");
    std::shared_ptr<Desk> desk;
    {
        const MutexLock lock(mutex_);
        const auto found = desks_.find(id);
        if (found == desks_.end() || !found->second) throw Refusal(404, noSuchInterpreter(id));
        desk = std::move(found->second);
    }
    const auto end = [this, desk, removed = std::move(removed)] {
        desk->stopDeleted();
        retire(desk);
        takeUnused();
        removed();
    };
    if (endings_.submit({.run = end}) != connector::WorkerPool::Outcome::Accepted) end();
}

void Registry::retire(const std::shared_ptr<Desk>& desk) {
    const MutexLock lock(mutex_);
    desks_.erase(desk->id());
    retired_.push_back(desk);
}

// What is taken is destroyed by the caller, with its last owner.
Registry::Desks Registry::takeUnused() {
    Desks unused;
    const MutexLock lock(mutex_);
    std::erase_if(retired_, [&](std::shared_ptr<Desk>& desk) {
        if (desk.use_count() > 1 || !desk->isUnused()) return false;
        unused.push_back(std::move(desk));
        return true;
    });
    return unused;
}

void Registry::clear() {
    std::map<std::string, std::shared_ptr<Desk>, std::less<>> desks;
    Desks retired;
    const MutexLock lock(mutex_);
    desks.swap(desks_);
    retired.swap(retired_);
}

void Registry::stop() {
    {
        const MutexLock lock(mutex_);
        if (std::exchange(isStopped_, true)) return;
    }
    for (const auto& desk : all()) {
        if (endings_.submit({.run = [desk] { desk->stop(); }}) != connector::WorkerPool::Outcome::Accepted) {
            desk->stop();
        }
    }
    endings_.finish();
}

}  // namespace gateway::interpreters
