#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <Poco/JSON/Object.h>

#include "dispatch/members.h"
#include "jupyter/Message.h"

namespace jupyter {

/// A message of a client, with what its header says.
struct Request {
    static constexpr std::size_t longestContent = std::size_t{64} << 20;

    Message message;
    std::string id;    ///< "msg_id"
    std::string type;  ///< "msg_type"
    /// Empty where they are no strings.
    std::string session{}, date{};

    /// Throws: std::exception, which says why its header is none.
    static std::shared_ptr<const Request> read(Message message);

    /// The content, of which members that are null count as absent. An array or object below a key `asText`
    /// stays text: connector::json::parse.
    /// Throws: dispatch::BadMessage, which names the member and says what it must be.
    Poco::JSON::Object::Ptr content(std::span<const dispatch::Member> members,
                                    std::string_view asText = {}) const;
};

using RequestPtr = std::shared_ptr<const Request>;

/// A member of an object that has been checked.
template <class T>
T memberOr(const Poco::JSON::Object& object, const std::string& name, T otherwise) {
    const auto value = object.get(name);
    return value.isEmpty() ? otherwise : value.convert<T>();
}

}  // namespace jupyter
