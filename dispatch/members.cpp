#include "dispatch/members.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>

#include "connector/ThreadSafety.h"
#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "foundation/log/diagnostic_logger.h"

namespace dispatch {

namespace {

using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

constexpr std::size_t mostUnknown = 10;
constexpr std::size_t longestName = 64;

bool isIntegerWithin(const Var& value, std::int64_t least, std::int64_t most) {
    if (value.type() == typeid(Poco::Int64)) {
        const auto integer = value.extract<Poco::Int64>();
        return integer >= least && integer <= most;
    }
    if (value.type() != typeid(double)) return false;
    const auto real = value.extract<double>();
    return std::trunc(real) == real && real >= static_cast<double>(least) &&
           real <= static_cast<double>(most);
}

bool isNumberWithin(const Var& value, std::int64_t least, std::int64_t most) {
    if (value.type() != typeid(double)) return isIntegerWithin(value, least, most);
    const auto real = value.extract<double>();
    return real >= static_cast<double>(least) && real <= static_cast<double>(most);
}

bool isTextOf(const Var& value, char opening) {
    return value.type() == typeid(connector::json::Text) &&
           value.extract<connector::json::Text>().json->front() == opening;
}

bool isArrayOfStrings(const Var& value) {
    return value.type() == typeid(Array::Ptr) &&
           std::ranges::all_of(*value.extract<Array::Ptr>(), &Var::isString);
}

bool fits(const Member& member, const Var& value) {
    switch (member.kind) {
        case Member::Kind::String:
            return value.type() == typeid(std::string);
        case Member::Kind::Boolean:
            return value.type() == typeid(bool);
        case Member::Kind::Integer:
            return isIntegerWithin(value, member.least, member.most);
        case Member::Kind::Number:
            return isNumberWithin(value, member.least, member.most);
        case Member::Kind::Array:
            return value.type() == typeid(Array::Ptr) || isTextOf(value, '[');
        case Member::Kind::Strings:
            return isArrayOfStrings(value);
        case Member::Kind::Object:
            return value.type() == typeid(Object::Ptr) || isTextOf(value, '{');
    }
    return false;
}

std::string kindOf(const Member& member) {
    switch (member.kind) {
        case Member::Kind::String:
            return "a string";
        case Member::Kind::Boolean:
            return "true or false";
        case Member::Kind::Integer:
            if (member.most == unlimited) return "an integer of at least " + std::to_string(member.least);
            return "an integer between " + std::to_string(member.least) + " and " +
                   std::to_string(member.most);
        case Member::Kind::Number:
            return "a number between " + std::to_string(member.least) + " and " + std::to_string(member.most);
        case Member::Kind::Array:
            return "an array";
        case Member::Kind::Strings:
            return "an array of strings";
        case Member::Kind::Object:
            return "an object";
    }
    return {};
}

/// Whether one more line may be logged; process-wide, since the log is.
bool mayWarn() {
    using Clock = std::chrono::steady_clock;
    constexpr int linesPerSecond = 10;
    static connector::Mutex mutex;
    static Clock::time_point begin;
    static int lines = 0;
    const connector::MutexLock lock(mutex);
    const auto now = Clock::now();
    if (now - begin >= std::chrono::seconds(1)) {
        begin = now;
        lines = 0;
    }
    return lines++ < linesPerSecond;
}

}  // namespace

void checkMembers(std::span<const Member> members, const Object& object, const std::string& path,
                  std::vector<std::string>& unknown) {
    const auto refuse = [&path](const Member& member) {
        throw BadMessage(path + std::string(member.name) + " must be " + kindOf(member));
    };
    for (const auto& [name, value] : object) {  // get() would copy the value
        const auto member = std::ranges::find(members, name, &Member::name);
        if (member != members.end()) {
            if (!fits(*member, value)) refuse(*member);
        } else if (unknown.size() < mostUnknown) {
            unknown.push_back(connector::json::quoted(path + name.substr(0, longestName)));
        }
    }
    for (const Member& member : members) {
        if (member.isRequired && !object.has(std::string(member.name))) refuse(member);
    }
}

std::vector<std::string> stringsIn(const Object& object, const std::string& name) {
    std::vector<std::string> strings;
    const auto array = object.getArray(name);
    for (std::size_t i = 0; array && i < array->size(); ++i) {
        strings.push_back(array->getElement<std::string>(static_cast<unsigned>(i)));
    }
    return strings;
}

void warnOfUnknown(const std::string& typeName, const std::vector<std::string>& unknown) {
    if (unknown.empty() || !mayWarn()) return;
    std::string names;
    for (const auto& name : unknown) names.append(names.empty() ? "" : ", ").append(name);
    foundation::log::DiagnosticLogger("gateway").warning("Unknown members of a request to " + typeName +
                                                         ": " + names);
}

}  // namespace dispatch
