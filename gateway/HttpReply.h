#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dispatch/Answer.h"

namespace gateway {

/// What a request is answered with.
struct HttpReply {
    int status = 200;
    std::string body{};
    std::string contentType = "application/json;charset=UTF-8";
    std::vector<std::pair<std::string, std::string>> headers{};
};

/// `{"error": "..."}` with a status.
HttpReply errorReply(int status, std::string_view text);

HttpReply replyFrom(dispatch::Answer answer);

/// A page for people, with a heading and one paragraph.
HttpReply pageReply(int status, std::string_view heading, std::string_view html);

/// Tells browsers what a page may load, and that it stands in no frame: this server's own files and sockets.
/// `caching` is its Cache-Control.
void addPageHeaders(HttpReply& reply, std::string_view caching = "no-cache");

}  // namespace gateway
