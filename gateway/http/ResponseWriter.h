#pragma once

#include <optional>
#include <utility>

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>

#include "HttpReply.h"

namespace gateway::http {

/// Writes the response to one request after the other, in pieces.
///
/// Threads: one at a time.
class ResponseWriter {
public:
    /// What the response takes from its request.
    struct Form {
        unsigned version = 11;
        bool keepsAlive = false;
        bool hasBody = true;  ///< false for HEAD
    };

    void begin(HttpReply reply, const Form& form);
    /// Calls `handler` with an error and a number of bytes; this has to live until then.
    template <class Stream, class Handler>
    void writeSome(Stream& stream, Handler handler) {
        boost::beast::http::async_write_some(stream, *serializer_, std::move(handler));
    }
    bool isDone() { return serializer_->is_done(); }
    /// Lets go of the response.
    void end();

private:
    std::optional<boost::beast::http::response<boost::beast::http::string_body>> response_;
    std::optional<boost::beast::http::response_serializer<boost::beast::http::string_body>> serializer_;
};

}  // namespace gateway::http
