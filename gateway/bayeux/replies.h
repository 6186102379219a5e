#pragma once

/// The texts of messages to clients.  Threads: any.

#include <string>
#include <string_view>

#include "bayeux/Request.h"

namespace gateway::bayeux {

inline constexpr const char* handshakeChannel = "/meta/handshake";
inline constexpr const char* connectChannel = "/meta/connect";
inline constexpr const char* disconnectChannel = "/meta/disconnect";
inline constexpr const char* subscribeChannel = "/meta/subscribe";
inline constexpr const char* unsubscribeChannel = "/meta/unsubscribe";

/// The replies to `request`. `members` go behind the others, each with a comma before it.
std::string succeeded(const Request& request, std::string_view members = {});
std::string failed(const Request& request, std::string_view error, std::string_view members = {});

/// The text of an error, "403:/a/b:denied". `channel` may be anything: what is no portable pattern is left
/// out.
std::string errorText(int code, std::string_view channel, std::string_view text);
inline std::string errorText(int code, std::string_view text) { return errorText(code, {}, text); }

/// The same JSON text in ASCII. A client may decode UTF-8 piece by piece as it comes over HTTP, and break
/// what stands on a border. Malformed bytes become U+FFFD.
std::string inAscii(std::string json);

}  // namespace gateway::bayeux
