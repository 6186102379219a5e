#include "http/requestHead.h"

#include <boost/beast/websocket/rfc6455.hpp>

namespace gateway::http {

namespace beast_http = boost::beast::http;
using beast_http::field;

namespace {

HttpMethod methodOf(const ReceivedRequest& received) {
    switch (received.method()) {
        case beast_http::verb::get:
            return HttpMethod::Get;
        case beast_http::verb::head:
            return HttpMethod::Head;
        case beast_http::verb::post:
            return HttpMethod::Post;
        case beast_http::verb::patch:
            return HttpMethod::Patch;
        case beast_http::verb::delete_:
            return HttpMethod::Delete;
        case beast_http::verb::options:
            return HttpMethod::Options;
        default:
            return HttpMethod::Other;
    }
}

// In its absolute form a target names the host itself, and the Host header has no meaning.
std::string_view takeAuthority(std::string_view& target) {
    for (const std::string_view scheme : {"http://", "https://"}) {
        if (!equalsIgnoringCase(target.substr(0, scheme.size()), scheme)) continue;
        target.remove_prefix(scheme.size());
        const std::string_view authority = target.substr(0, target.find_first_of("/?"));
        target.remove_prefix(authority.size());
        return authority;
    }
    return {};
}

}  // namespace

HttpRequest requestHead(const ReceivedRequest& received) {
    const auto text = [&](auto name) {
        const auto value = received[name];
        return std::string(value.data(), value.size());
    };
    HttpRequest head;
    head.method = methodOf(received);
    std::string_view target(received.target().data(), received.target().size());
    const std::string_view authority = takeAuthority(target);
    const auto mark = std::min(target.find('?'), target.size());
    head.path = mark == 0 ? "/" : target.substr(0, mark);
    head.query = target.substr(std::min(mark + 1, target.size()));
    if (received.count(field::host) == 1) head.host = authority.empty() ? text(field::host) : authority;
    // Of several, one could be checked and another be meant.
    head.origin = received.count(field::origin) > 1 ? "null" : text(field::origin);
    head.authorization = text(field::authorization);
    const auto cookies = received.equal_range(field::cookie);
    for (auto cookie = cookies.first; cookie != cookies.second; ++cookie) {
        head.cookie.append(cookie->value().data(), cookie->value().size()).append(";");
    }
    head.contentType = text(field::content_type);
    head.contentEncoding = text(field::content_encoding);
    head.clientType = text("Connector-Client-Type");
    head.life = text("Connector-Interpreter-Life");
    head.userAgent = text(field::user_agent);
    head.acceptEncoding = text(field::accept_encoding);
    head.ifNoneMatch = text(field::if_none_match);
    head.wantsWebSocket = boost::beast::websocket::is_upgrade(received);
    return head;
}

bool isFramedClearly(const ReceivedRequest& received) {
    const auto count = received.count(field::transfer_encoding);
    if (count == 0) return true;
    const auto coding = received[field::transfer_encoding];
    return count == 1 && received.version() == 11 && received.count(field::content_length) == 0 &&
           equalsIgnoringCase(std::string_view(coding.data(), coding.size()), "chunked");
}

bool waitsForContinue(const ReceivedRequest& received) {
    const auto value = received[field::expect];
    return received.version() >= 11 &&
           equalsIgnoringCase(std::string_view(value.data(), value.size()), "100-continue");
}

}  // namespace gateway::http
