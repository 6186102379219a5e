#include "bayeux/replies.h"

#include <algorithm>

#include "bayeux/channelRules.h"
#include "connector/json/escape.h"
#include "fl/i18n/text.h"

namespace gateway::bayeux {

namespace {

bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

std::string reply(const Request& request, const char* success, std::string_view members) {
    std::string text = R"({"channel":)" + connector::json::quoted(request.channel()) + request.idMember() +
                       R"(,"successful":)" + success;
    return text.append(members).append("}");
}

}  // namespace

std::string succeeded(const Request& request, std::string_view members) {
    return reply(request, "true", members);
}

std::string failed(const Request& request, std::string_view error, std::string_view members) {
    std::string all = R"(,"error":)" + connector::json::quoted(error);
    return reply(request, "false", all.append(members));
}

std::string errorText(int code, std::string_view channel, std::string_view text) {
    std::string error = std::to_string(code) + ":";
    if (isPortablePattern(channel)) error.append(channel);
    return error.append(":").append(text);
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
