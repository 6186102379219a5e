#include "MessageMembers.h"

#include "connector/json/ObjectBuilder.h"

namespace messages {

using connector::json::ObjectBuilder;

MessageMembers::MessageMembers(std::string_view own, const connector::common::RequestOrigin* origin)
    : own_(own), hasExtension_(own.find(R"(,"ext":)") != std::string_view::npos) {
    if (origin == nullptr || hasExtension_) return;
    ObjectBuilder members;
    // Names need no escaping.
    if (!origin->request.empty()) members.addJson("request", '"' + origin->request + '"');
    if (origin->prompt != 0) members.add("prompt", origin->prompt);
    if (!origin->echo) members.add("echo", false);
    if (!origin->death.empty()) members.addJson("death", origin->death);
    ofOrigin_ = members.members();
}

std::string MessageMembers::text(std::uint64_t number) const {
    std::string all(own_);
    if (hasExtension_ || (number == 0 && ofOrigin_.empty())) return all;
    all += R"(,"ext":{"connector":{)";
    if (number != 0) all.append(R"("seq":)").append(std::to_string(number));
    all.append(ofOrigin_, number != 0 ? 0 : 1).append("}}");
    return all;
}

}  // namespace messages
