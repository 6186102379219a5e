#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <Poco/JSON/Object.h>

namespace dispatch {

/// A request that is not as it must be. what() names the member and says what it must be, for the client.
class BadMessage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

inline constexpr auto unlimited = std::numeric_limits<std::int64_t>::max();

/// A member that a JSON object may or must have.
struct Member {
    enum class Kind { String, Boolean, Integer, Number, Array, Strings, Object };

    std::string_view name;
    Kind kind;
    bool isRequired = false;
    std::int64_t least = 0;  ///< of an integer or a number
    std::int64_t most = std::numeric_limits<std::int32_t>::max();
};

/// Refuses an object with a member of another kind than `members` say, or without one that is required;
/// nothing is converted, and null is of no kind. The names of its other members are appended to `unknown`, a
/// bounded number of them. `path` stands before each name.
/// Throws: BadMessage.
void checkMembers(std::span<const Member> members, const Poco::JSON::Object& object, const std::string& path,
                  std::vector<std::string>& unknown);

/// The strings in a member of the kind Strings; none where it is missing.
std::vector<std::string> stringsIn(const Poco::JSON::Object& object, const std::string& name);

/// Logs the names of members that nobody reads, so that a mistyped one can be found: a few lines a second,
/// whatever clients send.  Threads: any.
void warnOfUnknown(const std::string& typeName, const std::vector<std::string>& unknown);

}  // namespace dispatch
