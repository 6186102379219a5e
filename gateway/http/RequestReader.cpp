#include "http/RequestReader.h"

#include <cstdint>

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/error.hpp>

namespace gateway::http {

namespace asio = boost::asio;
namespace beast_http = boost::beast::http;
using boost::system::error_code;

namespace {

constexpr std::size_t bufferRoom = std::size_t{64} << 10;  // beside a head

[[noreturn]] void refuse(const error_code& error) {
    if (error == beast_http::error::body_limit) throw BadRequest(413, "The body is too large.");
    if (error == beast_http::error::header_limit) throw BadRequest(431, "The head is too large.");
    throw BadRequest(400, "The request is not valid HTTP: " + error.message() + ".");
}

}  // namespace

RequestReader::RequestReader(const ConnectionLimits& limits)
    : limits_(limits), buffer_(limits.headBytes + bufferRoom) {}

void RequestReader::append(const char* bytes, std::size_t count) {
    buffer_.commit(asio::buffer_copy(buffer_.prepare(count), asio::buffer(bytes, count)));
}

void RequestReader::begin() {
    bodyBytes_ = 0;
    parser_.emplace();
    parser_->header_limit(static_cast<std::uint32_t>(limits_.headBytes));
    parser_->body_limit(limits_.bodyBytes);
}

bool RequestReader::readHead() {
    error_code error;
    buffer_.consume(parser_->put(buffer_.data(), error));
    if (error == beast_http::error::need_more) return false;
    if (error) refuse(error);
    parser_->eager(true);
    return true;
}

// Piece by piece, because the parser's own way of reading does not come back as long as pieces end inside of
// what is around chunks.
bool RequestReader::readBody() {
    error_code error;
    if (!parser_->is_done() && buffer_.size() > 0) {
        const std::size_t count = parser_->put(buffer_.data(), error);
        buffer_.consume(count);
        bodyBytes_ += count;
    }
    if (error && error != beast_http::error::need_more) refuse(error);
    return parser_->is_done();
}

bool RequestReader::isHeadMethod() const {
    return parser_->is_header_done() && received().method() == beast_http::verb::head;
}

// Chunks may be small, so what is around them may take as much room again.
bool RequestReader::isBodyBeyond(std::size_t mostBytes) const {
    return bodyBytes_ > 2 * mostBytes + bufferRoom;
}

}  // namespace gateway::http
