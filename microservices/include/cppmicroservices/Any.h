#pragma once

#include <memory>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace cppmicroservices {

class Any;

/// An `Any` was asked for another type than that of its value.
class BadAnyCastException : public std::bad_cast {
public:
    explicit BadAnyCastException(std::string message) : message_(std::move(message)) {}
    ~BadAnyCastException() override;
    const char* what() const noexcept override { return message_.c_str(); }

private:
    std::string message_;
};

namespace detail {

/// Writes `value` with its own `<<`, or the elements of a range as `[a,b]`.
template <class T>
void writeText(std::ostream& out, const T& value);

/// "`from` is no `to`", with readable names.
[[noreturn]] void throwBadAnyCast(const std::type_info& from, const std::type_info& to);

class AnyContent {
public:
    virtual ~AnyContent();
    virtual std::unique_ptr<AnyContent> copy() const = 0;
    virtual const std::type_info& type() const noexcept = 0;
    virtual void write(std::ostream& out) const = 0;
};

template <class T>
class AnyValue final : public AnyContent {
public:
    template <class From>
    explicit AnyValue(From&& from) : value(std::forward<From>(from)) {}
    std::unique_ptr<AnyContent> copy() const override { return std::make_unique<AnyValue>(value); }
    const std::type_info& type() const noexcept override { return typeid(T); }
    void write(std::ostream& out) const override { writeText(out, value); }

    T value;
};

}  // namespace detail

/// Holds a copy of one value of any type that can be copied and written to a stream, or nothing.
///
/// Threads: as a plain value.
class Any {
public:
    Any() = default;
    /// Not from a string literal: the value is to be a std::string.
    template <class T>
    requires(!std::is_same_v<std::remove_cvref_t<T>, Any> && !std::is_array_v<std::remove_reference_t<T>>)
        Any(T&& value)  // NOLINT(bugprone-forwarding-reference-overload): Any itself is excluded
        : content_(std::make_unique<detail::AnyValue<std::remove_cvref_t<T>>>(std::forward<T>(value))) {}
    Any(const Any& other) : content_(other.content_ ? other.content_->copy() : nullptr) {}
    Any(Any&&) noexcept = default;
    Any& operator=(const Any& other) { return *this = Any(other); }
    Any& operator=(Any&&) noexcept = default;
    ~Any() = default;

    bool Empty() const { return !content_; }
    /// The type of the value; void when empty.
    const std::type_info& Type() const { return content_ ? content_->type() : typeid(void); }
    /// The value as text.  Throws: std::logic_error, when empty.
    std::string ToString() const;

private:
    template <class T>
    friend const T* any_cast(const Any* any) noexcept;

    std::unique_ptr<detail::AnyContent> content_;
};

/// The value, when it is of exactly the type `T`, else null.
template <class T>
const T* any_cast(const Any* any) noexcept {
    if (any == nullptr || any->Empty() || any->Type() != typeid(T)) return nullptr;
    return &static_cast<const detail::AnyValue<T>*>(any->content_.get())->value;
}
template <class T>
T* any_cast(Any* any) noexcept {
    return const_cast<T*>(any_cast<T>(static_cast<const Any*>(any)));
}

/// A copy of the value.  Throws: BadAnyCastException, when it is not of exactly the type `T`.
template <class T>
T any_cast(const Any& any) {
    static_assert(!std::is_reference_v<T>, "a value is copied out; use the form with a pointer");
    const T* value = any_cast<T>(&any);
    if (value == nullptr) detail::throwBadAnyCast(any.Type(), typeid(T));
    return *value;
}

template <class T>
void detail::writeText(std::ostream& out, const T& value) {
    if constexpr (std::is_same_v<T, Any>) {
        if (!value.Empty()) out << value.ToString();
    } else if constexpr (std::is_same_v<T, bool>) {
        out << (value ? "true" : "false");
    } else if constexpr (requires { out << value; }) {
        out << value;
    } else {
        const char* separator = "[";
        for (const auto& element : value) {
            out << std::exchange(separator, ",");
            detail::writeText(out, element);
        }
        out << (*separator == '[' ? "[]" : "]");
    }
}

}  // namespace cppmicroservices
