#include "MessageMembers.h"

#include <charconv>

#include "connector/json/ObjectBuilder.h"
#include "messages/FrameOrigin.h"
#include "messages/MessageFrame.h"

namespace messages {

using connector::json::ObjectBuilder;

namespace {

// The members that the service writes, one after the other, in the order in which it does.
class Reader {
public:
    explicit Reader(std::string_view members) : rest_(members) {}

    bool skip(std::string_view text) {
        if (!rest_.starts_with(text)) return false;
        rest_.remove_prefix(text.size());
        return true;
    }
    bool isAt(std::string_view member) {
        skip(",");
        return skip(member);
    }
    std::uint64_t number() {
        std::uint64_t value = 0;
        const auto end = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value).ptr;
        rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
        return value;
    }
    std::string_view until(std::size_t end) {
        const auto text = rest_.substr(0, end);
        rest_.remove_prefix(text.size());
        return text;
    }
    std::string_view rest() const { return rest_; }

private:
    std::string_view rest_;
};

constexpr std::string_view opening = R"(,"ext":{"connector":{)", closing = "}}";

}  // namespace

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
    all += opening;
    if (number != 0) all.append(R"("seq":)").append(std::to_string(number));
    all.append(ofOrigin_, number != 0 ? 0 : 1).append(closing);
    return all;
}

FrameOrigin FrameOrigin::of(const MessageFrame& frame) {
    FrameOrigin origin;
    Reader members(frame.members());
    if (!members.skip(opening) || !members.rest().ends_with(closing)) return origin;
    members = Reader(members.rest().substr(0, members.rest().size() - closing.size()));
    if (members.isAt(R"("seq":)")) members.number();
    if (members.isAt(R"("request":")")) {
        origin.request = members.until(members.rest().find('"'));
        members.skip("\"");
    }
    if (members.isAt(R"("prompt":)")) origin.prompt = members.number();
    members.isAt(R"("echo":false)");
    if (members.isAt(R"("death":)")) origin.death = members.rest();
    return origin;
}

}  // namespace messages
