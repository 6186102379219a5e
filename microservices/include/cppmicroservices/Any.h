#pragma once

#include <any>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace cppmicroservices {

/// Holds a copy of one value of any type that can be copied, or nothing.
///
/// Threads: as a plain value.
class Any {
public:
    Any() = default;
    /// Not from a string literal: the value must be a std::string.
    template <class T>
    requires(!std::is_same_v<std::remove_cvref_t<T>, Any> && !std::is_array_v<std::remove_reference_t<T>>)
        Any(T&& value)  // NOLINT(bugprone-forwarding-reference-overload): Any itself is excluded
        : value_(std::forward<T>(value)) {}

    bool Empty() const { return !value_.has_value(); }

private:
    template <class T>
    friend const T* any_cast(const Any* any) noexcept;

    std::any value_;
};

/// The value, when it is of exactly the type `T`, else null.
template <class T>
const T* any_cast(const Any* any) noexcept {
    return any != nullptr ? std::any_cast<T>(&any->value_) : nullptr;
}

/// A copy of the value.  Throws: std::bad_cast, when it is not of exactly the type `T`.
template <class T>
T any_cast(const Any& any) {
    const T* value = any_cast<T>(&any);
    if (value == nullptr) throw std::bad_cast();
    return *value;
}

}  // namespace cppmicroservices
