#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>
#include <type_traits>
#include <utility>

#include <Poco/Ascii.h>
#include <Poco/String.h>

#include "filter/Filter.h"

namespace cppmicroservices::detail {

bool KeyOrder::operator()(const std::string& left, const std::string& right) const {
    return Poco::icompare(left, right) < 0;
}

namespace {

bool matches(const PropertyTest& test, const Any& value);

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
        if (!Poco::Ascii::isSpace(character)) plain += static_cast<char>(Poco::Ascii::toLower(character));
    }
    return plain;
}

bool matchesText(const PropertyTest& test, std::string_view text) {
    switch (test.comparison) {
        case Comparison::Equal:
            return matchesPieces(test.pieces, text);
        case Comparison::Approximate:
            return withoutCaseAndBlanks(text) == withoutCaseAndBlanks(test.text);
        case Comparison::AtLeast:
            return text >= test.text;
        default:
            return text <= test.text;
    }
}

/// Compares with the number at the start of the text, after blanks and a plus sign.
template <class T>
bool matchesNumber(const PropertyTest& test, T value) {
    std::string_view text = test.text;
    while (!text.empty() && Poco::Ascii::isSpace(text.front())) text.remove_prefix(1);
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    T number{};
    if (std::from_chars(text.data(), text.data() + text.size(), number).ec != std::errc()) return false;
    if (test.comparison == Comparison::AtLeast) return value >= number;
    if (test.comparison == Comparison::AtMost) return value <= number;
    if constexpr (std::is_floating_point_v<T>) {
        return value == number || std::abs(value - number) <= std::numeric_limits<T>::epsilon();
    } else {
        return value == number;
    }
}

template <class T>
bool matchesAs(const PropertyTest& test, const T& value) {
    if constexpr (std::is_same_v<T, Any>) {
        return matches(test, value);
    } else if constexpr (std::is_same_v<T, bool>) {
        const bool isOrder = test.comparison == Comparison::AtLeast || test.comparison == Comparison::AtMost;
        return !isOrder && Poco::icompare(test.text, value ? "true" : "false") == 0;
    } else if constexpr (std::is_integral_v<T>) {
        return std::in_range<std::int64_t>(value) && matchesNumber(test, static_cast<std::int64_t>(value));
    } else if constexpr (std::is_floating_point_v<T>) {
        return matchesNumber(test, value);
    } else if constexpr (std::is_pointer_v<T>) {
        return value != nullptr && matchesText(test, value);
    } else if constexpr (std::is_same_v<T, std::string>) {
        return matchesText(test, value);
    } else {
        return std::ranges::any_of(value, [&](const auto& element) { return matchesAs(test, element); });
    }
}

template <class... Types>
bool matchesOneOf(const PropertyTest& test, const Any& any) {
    const auto matchesType = [&]<class T>(const T* value) {
        return value != nullptr && matchesAs(test, *value);
    };
    return (matchesType(any_cast<Types>(&any)) || ...);
}

// A value of another type matches no test but presence.
bool matches(const PropertyTest& test, const Any& value) {
    return matchesOneOf<std::string, const char*, bool, short, unsigned short, int, unsigned, long,  //
                        unsigned long, long long, unsigned long long, float, double,                 //
                        std::vector<std::string>, std::vector<Any>>(test, value);
}

}  // namespace

bool PropertyTest::operator()(const AnyMap& properties) const {
    const auto found = properties.find(key);
    if (found == properties.end() || found->second.Empty()) return false;
    const bool isPresence = comparison == Comparison::Equal && pieces == std::vector<std::string>(2);
    return isPresence || matches(*this, found->second);
}

}  // namespace cppmicroservices::detail
