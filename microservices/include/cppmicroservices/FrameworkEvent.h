#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include "cppmicroservices/Bundle.h"

namespace cppmicroservices {

/// What a framework reports; a plain value.
class FrameworkEvent {
public:
    enum Type : std::uint32_t {
        FRAMEWORK_ERROR,
        FRAMEWORK_STOPPED,
        FRAMEWORK_WAIT_TIMEDOUT,
    };

    /// One that is false.
    FrameworkEvent() = default;
    FrameworkEvent(Type type, Bundle bundle, std::string message, std::exception_ptr throwable = nullptr)
        : isValid_(true),
          type_(type),
          bundle_(std::move(bundle)),
          message_(std::move(message)),
          throwable_(std::move(throwable)) {}

    explicit operator bool() const { return isValid_; }
    Type GetType() const { return type_; }
    std::string GetMessage() const { return message_; }
    std::exception_ptr GetThrowable() const { return throwable_; }
    Bundle GetBundle() const { return bundle_; }

private:
    bool isValid_ = false;
    Type type_ = FRAMEWORK_ERROR;
    Bundle bundle_;
    std::string message_;
    std::exception_ptr throwable_;
};

}  // namespace cppmicroservices
