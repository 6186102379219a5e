#pragma once

#include <utility>

#include <unistd.h>

namespace supervisor {

/// Owns a file descriptor, or none (-1).
class Descriptor {
public:
    explicit Descriptor(int number = -1) noexcept : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() {
        if (number_ >= 0) ::close(number_);
    }

    int get() const noexcept { return number_; }

private:
    int number_;
};

}  // namespace supervisor
