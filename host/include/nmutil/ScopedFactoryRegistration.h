#pragma once

#include <functional>
#include <utility>

namespace nmutil {

/// Keeps a factory registered. Destroying it takes the factory out again. Move-only.
///
/// Threads: any, one at a time.
class ScopedFactoryRegistration {
public:
    ScopedFactoryRegistration() = default;
    explicit ScopedFactoryRegistration(std::function<void()> unregister)
        : unregister_(std::move(unregister)) {}
    ~ScopedFactoryRegistration() { reset(); }
    ScopedFactoryRegistration(ScopedFactoryRegistration&& other) noexcept
        : unregister_(std::exchange(other.unregister_, nullptr)) {}
    ScopedFactoryRegistration& operator=(ScopedFactoryRegistration&& other) noexcept {
        if (this != &other) {
            reset();
            unregister_ = std::exchange(other.unregister_, nullptr);
        }
        return *this;
    }

    /// Unregisters now. Does nothing the second time.
    void reset() {
        if (auto unregister = std::exchange(unregister_, nullptr)) unregister();
    }

private:
    std::function<void()> unregister_;
};

}  // namespace nmutil
