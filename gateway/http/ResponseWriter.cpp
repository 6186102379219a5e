#include "http/ResponseWriter.h"

#include <utility>

#include <boost/beast/http/field.hpp>

namespace gateway::http {

namespace beast_http = boost::beast::http;

namespace {

constexpr std::size_t pieceSize = std::size_t{256} << 10;

}  // namespace

void ResponseWriter::begin(HttpReply reply, const Form& form) {
    response_.emplace();
    response_->version(form.version);
    response_->result(static_cast<unsigned>(reply.status));
    if (!reply.contentType.empty()) response_->set(beast_http::field::content_type, reply.contentType);
    for (const auto& [name, value] : reply.headers) response_->insert(name, value);
    response_->keep_alive(form.keepsAlive);
    if (reply.status != 204) response_->content_length(reply.body.size());
    if (form.hasBody) response_->body() = std::move(reply.body);
    serializer_.emplace(*response_);
    serializer_->limit(pieceSize);
}

void ResponseWriter::end() {
    serializer_.reset();
    response_.reset();
}

}  // namespace gateway::http
