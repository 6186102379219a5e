#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include "gateway/GatewayOptions.h"
#include "http/requestHead.h"

namespace gateway::http {

/// Bytes that are no valid request. What comes after them cannot be read either.
class BadRequest : public std::runtime_error {
public:
    BadRequest(int status, const std::string& text) : std::runtime_error(text), status_(status) {}
    int status() const { return status_; }

private:
    int status_;
};

/// Takes requests out of the bytes of a connection, one after the other: `begin`, `readHead` until it is
/// complete, `readBody` until it is.
///
/// Threads: one at a time.
class RequestReader {
public:
    explicit RequestReader(const ConnectionLimits& limits);

    /// Adds `count` bytes that have come, no more than there is `room` for.
    void append(const char* bytes, std::size_t count);
    std::size_t room() const { return buffer_.max_size() - buffer_.size(); }
    /// Whether there are bytes that no request has taken yet.
    bool hasBytes() const { return buffer_.size() > 0; }

    void begin();
    /// Whether the head is complete.  Throws: BadRequest.
    bool readHead();
    /// Whether the body is complete.  Throws: BadRequest.
    bool readBody();

    const ReceivedRequest& received() const { return parser_->get(); }
    const std::string& body() const { return received().body(); }
    bool isComplete() const { return parser_->is_done(); }
    bool keepsAlive() const { return parser_->keep_alive(); }
    bool isHeadMethod() const;
    /// Of the body that have come, with what is between chunks.
    std::size_t bodyBytes() const { return bodyBytes_; }
    /// Whether more has come than a body of `mostBytes` may take with what is between its chunks, which the
    /// parser does not count.
    bool isBodyBeyond(std::size_t mostBytes) const;

    std::string takeBody() { return std::move(parser_->get().body()); }
    ReceivedRequest release() { return parser_->release(); }

private:
    const ConnectionLimits& limits_;
    boost::beast::flat_buffer buffer_;
    std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> parser_;
    std::size_t bodyBytes_ = 0;
};

}  // namespace gateway::http
