#include "bayeux/replies.h"

#include <algorithm>

#include "bayeux/channelRules.h"
#include "fl/i18n/text.h"

namespace gateway::bayeux {

namespace {

bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

Members reply(const ClientMessage& message, bool isSuccessful) {
    Members reply;
    reply.add("channel", message.channel());
    if (!message.idJson().empty()) reply.addJson("id", message.idJson());
    reply.add("successful", isSuccessful);
    return reply;
}

}  // namespace

std::string succeeded(const ClientMessage& message, const Members& members) {
    return reply(message, true).addMembers(members).take();
}

std::string failed(const ClientMessage& message, std::string_view error, const Members& members) {
    return reply(message, false).add("error", error).addMembers(members).take();
}

std::string errorText(int code, std::string_view channel, std::string_view text) {
    std::string error = std::to_string(code) + ":";
    if (isPortablePattern(channel)) error.append(channel);
    return error.append(":").append(text);
}

std::string unknownClient(const ClientMessage& message, const Advice& advice) {
    const bool isConnect = message.channel() == connectChannel;
    return failed(message, errorText(402, "unknown client"), isConnect ? advice.handshake() : Members());
}

std::string inAscii(std::string json) {
    if (std::ranges::all_of(json, isAscii)) return json;
    static const fl::i18n::codecvt_string_to_ustring converter("UTF-8", true);
    constexpr std::string_view digits = "0123456789abcdef";
    std::string ascii;
    ascii.reserve(json.size() * 2);
    for (const char16_t unit : converter(json)) {
        if (unit < 0x80) {
            ascii.push_back(static_cast<char>(unit));
            continue;
        }
        ascii += "\\u";
        for (int shift = 12; shift >= 0; shift -= 4) ascii.push_back(digits[(unit >> shift) & 15]);
    }
    return ascii;
}

}  // namespace gateway::bayeux
