#pragma once

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>

#include "HttpRequest.h"

namespace gateway::http {

using ReceivedRequest = boost::beast::http::request<boost::beast::http::string_body>;

/// The head of a request as the endpoints see it, without addresses. The host is empty unless there is one
/// Host header.
HttpRequest requestHead(const ReceivedRequest& received);

/// Whether it is beyond doubt where the body ends. An intermediary that reads an unusual Transfer-Encoding
/// in another way would take a part of the body for a request, or the other way round.
bool isFramedClearly(const ReceivedRequest& received);

/// Whether the client waits for a word before it sends the body.
bool waitsForContinue(const ReceivedRequest& received);

}  // namespace gateway::http
