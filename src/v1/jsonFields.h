#pragma once

/// Fields of messages out of JSON objects, with errors that name the field and say what it must be.
///
/// Threads: any, while nobody changes the object.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include <Poco/Dynamic/Var.h>
#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "fl/i18n/text.h"

namespace connector::interpreter::v1 {

/// The value of `key`, or null when it is absent. Object::get would copy it, and texts can be large.
inline const Poco::Dynamic::Var* findField(const Poco::JSON::Object& object, std::string_view key) {
    const auto found =
        std::find_if(object.begin(), object.end(), [key](const auto& entry) { return entry.first == key; });
    return found == object.end() ? nullptr : &found->second;
}

/// Parsed containers are held by pointer; those that a program puts into an object may be held by value.
template <class Container>
bool holds(const Poco::Dynamic::Var& value) {
    return value.type() == typeid(typename Container::Ptr) || value.type() == typeid(Container);
}

/// Throws: what Poco throws when `value` is no such container.
template <class Container>
const Container& containerIn(const Poco::Dynamic::Var& value) {
    if (value.type() == typeid(Container)) return value.extract<Container>();
    return *value.extract<typename Container::Ptr>();
}

/// The result of a conversion of Poco's. Its errors keep their types and say what `key` must be.
template <class Convert>
decltype(auto) reading(std::string_view key, std::string_view kind, Convert convert) {
    const auto expected = [&] { return '"' + std::string(key) + "\" must be " + std::string(kind) + '.'; };
    try {
        return convert();
    } catch (const Poco::RangeException& error) {
        throw Poco::RangeException(error.message() + ' ' + expected());
    } catch (const Poco::SyntaxException&) {
        throw Poco::SyntaxException(expected());
    } catch (const Poco::InvalidAccessException&) {  // null
        throw Poco::InvalidAccessException(expected());
    } catch (const Poco::BadCastException&) {
        throw Poco::BadCastException(expected());
    }
}

template <class T>
inline constexpr std::string_view kindOf = "a string";
template <>
inline constexpr std::string_view kindOf<bool> = "true or false";
template <>
inline constexpr std::string_view kindOf<std::int32_t> = "a 32-bit integer";

/// Converts as Poco does, which would also take an array for its text, and a number without its fraction.
template <class T>
T valueOf(const Poco::JSON::Object& object, std::string_view key, T absent = {},
          std::string_view kind = kindOf<T>) {
    const Poco::Dynamic::Var* const value = findField(object, key);
    if (!value) return absent;
    return reading(key, kind, [value] {
        if (holds<Poco::JSON::Array>(*value) || holds<Poco::JSON::Object>(*value))
            throw Poco::BadCastException();
        if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) {
            if (value->type() == typeid(double) &&
                std::trunc(value->extract<double>()) != value->extract<double>())
                throw Poco::SyntaxException();
        }
        return value->convert<T>();
    });
}

/// A string in UTF-16; empty when it is absent.
inline std::u16string textOf(const Poco::JSON::Object& object, std::string_view key) {
    const Poco::Dynamic::Var* const value = findField(object, key);
    if (value && value->type() == typeid(std::string))
        return fl::i18n::to_ustring(value->extract<std::string>());
    return fl::i18n::to_ustring(valueOf<std::string>(object, key));
}

}  // namespace connector::interpreter::v1
