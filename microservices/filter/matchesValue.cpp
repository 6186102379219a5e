#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <list>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "asciiCase.h"
#include "filter/FilterNode.h"

namespace cppmicroservices::detail {

namespace {

/// Whether `text` is made of the pieces in their order, with anything between them.
bool matchesPieces(const std::vector<std::string>& pieces, std::string_view text) {
    if (pieces.size() == 1) return text == pieces.front();
    if (!text.starts_with(pieces.front())) return false;
    text.remove_prefix(pieces.front().size());
    for (std::size_t i = 1; i + 1 < pieces.size(); ++i) {
        const std::size_t at = text.find(pieces[i]);
        if (at == std::string_view::npos) return false;
        text.remove_prefix(at + pieces[i].size());
    }
    return text.ends_with(pieces.back());
}

std::string withoutCaseAndBlanks(std::string_view text) {
    std::string plain;
    for (const char character : text) {
        if (!isBlank(character)) plain += lowered(character);
    }
    return plain;
}

bool matchesText(const FilterNode& test, std::string_view text) {
    switch (test.kind) {
        case FilterKind::Equal:
            return matchesPieces(test.value.pieces, text);
        case FilterKind::Approximate:
            return withoutCaseAndBlanks(text) == withoutCaseAndBlanks(test.value.text);
        case FilterKind::AtLeast:
            return text >= test.value.text;
        default:
            return text <= test.value.text;
    }
}

bool matchesBool(const FilterNode& test, bool value) {
    if (test.kind != FilterKind::Equal && test.kind != FilterKind::Approximate) return false;
    return equalsIgnoringCase(test.value.text, value ? "true" : "false");
}

/// The number at the start of `text`, behind blanks and a plus sign.
template <class T>
std::optional<T> leadingNumber(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    T number{};
    const auto error = std::from_chars(text.data(), text.data() + text.size(), number).ec;
    if (error != std::errc{}) return std::nullopt;
    return number;
}

template <class T>
bool matchesInteger(const FilterNode& test, T value) {
    const auto compare = [&](auto number) {
        switch (test.kind) {
            case FilterKind::AtLeast:
                return std::cmp_greater_equal(value, number);
            case FilterKind::AtMost:
                return std::cmp_less_equal(value, number);
            default:
                return std::cmp_equal(value, number);
        }
    };
    if (const auto number = leadingNumber<std::int64_t>(test.value.text)) return compare(*number);
    if (const auto number = leadingNumber<std::uint64_t>(test.value.text)) return compare(*number);
    return false;
}

template <class T>
bool matchesReal(const FilterNode& test, T value) {
    const auto number = leadingNumber<T>(test.value.text);
    if (!number) return false;
    switch (test.kind) {
        case FilterKind::AtLeast:
            return value >= *number;
        case FilterKind::AtMost:
            return value <= *number;
        default:
            return value == *number || std::abs(value - *number) <= std::numeric_limits<T>::epsilon();
    }
}

bool matchesElement(const FilterNode& test, const Any& element) { return matchesValue(test, element); }
bool matchesElement(const FilterNode& test, const std::string& element) { return matchesText(test, element); }

template <class T>
bool matchesOne(const FilterNode& test, const T& value) {
    if constexpr (std::is_same_v<T, bool>) {
        return matchesBool(test, value);
    } else if constexpr (std::is_same_v<T, char>) {
        return matchesText(test, {&value, 1});
    } else if constexpr (std::is_same_v<T, unsigned char>) {
        return matchesInteger(test, static_cast<unsigned>(value));
    } else if constexpr (std::is_integral_v<T>) {
        return matchesInteger(test, value);
    } else if constexpr (std::is_floating_point_v<T>) {
        return matchesReal(test, value);
    } else if constexpr (std::is_pointer_v<T>) {
        return value != nullptr && matchesText(test, value);
    } else if constexpr (std::is_same_v<T, std::string>) {
        return matchesText(test, value);
    } else {
        for (const auto& element : value) {
            if (matchesElement(test, element)) return true;
        }
        return false;
    }
}

template <class... Types>
bool matchesOneOf(const FilterNode& test, const Any& any) {
    const auto matchesAs = [&]<class T>(const T* value) {
        return value != nullptr && matchesOne(test, *value);
    };
    return (matchesAs(any_cast<Types>(&any)) || ...);
}

}  // namespace

// Values of other types, signed char among them, match nothing.
bool matchesValue(const FilterNode& test, const Any& value) {
    return matchesOneOf<std::string, const char*, char*, char, bool,                               //
                        unsigned char, short, unsigned short, int, unsigned, long, unsigned long,  //
                        long long, unsigned long long, float, double,                              //
                        std::vector<std::string>, std::list<std::string>, std::vector<Any>>(test, value);
}

}  // namespace cppmicroservices::detail
