#include "HttpReply.h"

#include <utility>

namespace gateway {

HttpReply errorReply(int status, std::string_view text) {
    return {.status = status, .body = dispatch::errorJson(text)};
}

HttpReply replyFrom(dispatch::Answer answer) {
    HttpReply reply{.status = answer.status, .body = std::move(answer.json)};
    if (answer.retrySeconds > 0) {
        reply.headers.emplace_back("Retry-After", std::to_string(answer.retrySeconds));
    }
    if (answer.isDropped) reply.headers.emplace_back("Connector-Dropped", "true");
    return reply;
}

HttpReply pageReply(int status, std::string_view heading, std::string_view html) {
    HttpReply reply{.status = status, .contentType = "text/html;charset=UTF-8"};
    reply.body
        .append(
            "<!DOCTYPE html>\n<html lang=\"en\"><meta charset=\"utf-8\"><link rel=\"icon\" "
            "href=\"data:,\"><title>")
        .append(heading)
        .append("</title>\n<h1>")
        .append(heading)
        .append("</h1>\n<p>")
        .append(html)
        .append("</p></html>\n");
    addPageHeaders(reply);
    return reply;
}

void addPageHeaders(HttpReply& reply, std::string_view caching) {
    reply.headers.emplace_back("Cache-Control", caching);
    // Libraries run their timers in a worker that they make of a blob, because browsers slow down those of a
    // page that is not shown. Only a script that may run here already can make one, and what it fetches is
    // under this policy, too. Styles may stand in the page for coloured tables.
    reply.headers.emplace_back(
        "Content-Security-Policy",
        "default-src 'none'; script-src 'self'; worker-src 'self' blob:; style-src 'self' 'unsafe-inline'; "
        "img-src 'self' data: blob:; connect-src 'self'; font-src 'self'; manifest-src 'self'; "
        "base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
    reply.headers.emplace_back("Referrer-Policy", "no-referrer");
}

}  // namespace gateway
