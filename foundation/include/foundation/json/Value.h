#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace foundation::json {

/// A JSON value: null, a boolean, a number, a string in UTF-8, an array, or an object, whose keys are in
/// order.
///
/// Threads: as a plain value.
class Value {
public:
    using Array = std::vector<Value>;
    using Object = std::map<std::string, Value>;
    /// JSON that is written already.
    struct Json {
        std::string text;
    };
    using Content = std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string,
                                 Array, Object, Json>;

    Value() = default;  ///< null
    Value(std::nullptr_t) {}
    // Templates, so that no pointer becomes a boolean and no boolean a number.
    template <std::same_as<bool> T>
    Value(T value) : content_(value) {}
    template <std::signed_integral T>
    Value(T value) : content_(static_cast<std::int64_t>(value)) {}
    template <std::unsigned_integral T>
    requires(!std::same_as<T, bool>) Value(T value) : content_(static_cast<std::uint64_t>(value)) {}
    /// NaN and the infinities are null in JSON.
    template <std::floating_point T>
    Value(T value) : content_(static_cast<double>(value)) {}
    Value(std::string text) : content_(std::move(text)) {}
    Value(std::string_view text) : content_(std::string(text)) {}
    Value(const char* text) : content_(std::string(text)) {}
    Value(Array elements) : content_(std::move(elements)) {}
    Value(Object members) : content_(std::move(members)) {}
    /// `json` is one value, which is serialised as it stands.
    Value(Json json) : content_(std::move(json)) {}

    const Content& content() const { return content_; }

private:
    Content content_;
};

/// `value` as compact JSON in UTF-8. Numbers are the shortest text that reads back as the same; NaN and the
/// infinities, which JSON lacks, are null. Strings are escaped as `connector::json::appendEscaped` does.
///
/// Threads: any, while nobody changes the value.
/// Throws: connector::common::OutOfMemory ("Out of memory!"), or another std::bad_alloc.
std::string serialize(const Value& value);

}  // namespace foundation::json
