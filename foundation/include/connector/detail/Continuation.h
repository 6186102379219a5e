#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace connector {

template <class T>
class Future;

namespace detail {

/// A callable that takes a `Future<T>`, its type erased. Unlike `std::function` it may be move-only, so that
/// a continuation can carry the promise that it is going to resolve.
template <class T>
class Continuation {
public:
    Continuation() = default;
    virtual ~Continuation() = default;
    Continuation(const Continuation&) = delete;
    Continuation& operator=(const Continuation&) = delete;

    virtual void run(Future<T> future) = 0;
};

template <class T, class F>
class ContinuationOf final : public Continuation<T> {
public:
    template <class Callable>
    explicit ContinuationOf(std::in_place_t, Callable&& callable)
        : callable_(std::forward<Callable>(callable)) {}

    void run(Future<T> future) override { std::invoke(callable_, std::move(future)); }

private:
    F callable_;
};

template <class T, class F>
std::unique_ptr<Continuation<T>> makeContinuation(F&& callable) {
    return std::make_unique<ContinuationOf<T, std::decay_t<F>>>(std::in_place, std::forward<F>(callable));
}

}  // namespace detail
}  // namespace connector
