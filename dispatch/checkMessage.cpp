#include "dispatch/checkMessage.h"

#include <limits>
#include <optional>
#include <span>
#include <vector>

#include <Poco/JSON/Array.h>

#include "connector/identifiers.h"
#include "connector/wireWords.h"
#include "dispatch/members.h"

namespace dispatch {

namespace {

using Kind = Member::Kind;
using Poco::JSON::Object;
namespace wire = connector::wire;

constexpr auto smallest = std::numeric_limits<std::int32_t>::min();
constexpr auto mostSeconds = std::numeric_limits<std::int32_t>::max() / 1000;

constexpr Member evalMembers[] = {
    {"uuid", Kind::String},
    {"mcode", Kind::String, true},
    {"width", Kind::Integer, false, smallest},
    {"height", Kind::Integer, false, smallest},
    {"timeout", Kind::Integer, false, 0, mostSeconds},
};
constexpr Member fevalMembers[] = {
    {"uuid", Kind::String},       {"function", Kind::String, true},
    {"arguments", Kind::Array},   {"nargout", Kind::Integer},
    {"timeoutMs", Kind::Integer}, {"priority", Kind::Integer, false, smallest},
    {"dequeMode", Kind::String},  {"outputMode", Kind::String},
    {"hotlinks", Kind::Boolean},
};
constexpr Member interruptMembers[] = {{"uuid", Kind::String}, {"waitingOnly", Kind::Boolean}};
constexpr Member sequenceMembers[] = {{"uuid", Kind::String}, {"messages", Kind::Array, true}};
constexpr Member entryMembers[] = {{"type", Kind::String, true}, {"message", Kind::Object, true}};

std::optional<std::span<const Member>> membersOf(const std::string& typeName) {
    if (typeName == wire::type::eval) return evalMembers;
    if (typeName == wire::type::feval) return fevalMembers;
    if (typeName == wire::type::interrupt) return interruptMembers;
    if (typeName == wire::type::sequence) return sequenceMembers;
    return std::nullopt;
}

void check(const std::string& typeName, Object& message, const std::string& path,
           std::vector<std::string>& unknown);

void checkEntries(const Poco::JSON::Array& entries, const std::string& path,
                  std::vector<std::string>& unknown) {
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const std::string name = path + "messages[" + std::to_string(i) + "]";
        const auto entry = entries.getObject(static_cast<unsigned>(i));
        if (!entry) throw BadMessage(name + " must be an object");
        checkMembers(entryMembers, *entry, name + ".", unknown);
        check(entry->getValue<std::string>("type"), *entry->getObject("message"), name + ".message.",
              unknown);
    }
}

void check(const std::string& typeName, Object& message, const std::string& path,
           std::vector<std::string>& unknown) {
    if (const auto members = membersOf(typeName)) checkMembers(*members, message, path, unknown);
    if (!message.has("uuid")) message.set("uuid", connector::randomUuid());
    if (typeName == wire::type::sequence) checkEntries(*message.getArray("messages"), path, unknown);
}

}  // namespace

void checkMessage(const std::string& typeName, Object& message) {
    std::vector<std::string> unknown;
    check(typeName, message, "", unknown);
    warnOfUnknown(typeName, unknown);
}

}  // namespace dispatch
