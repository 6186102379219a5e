#pragma once

#include "HttpRequest.h"
#include "http/TrustedProxies.h"
#include "http/requestHead.h"

namespace gateway::http {

/// Has `head` say what its client sent to the first of the proxies that are trusted, one after the other,
/// from the last, whose address must be known to be among them: the client's address, the host and the
/// scheme. It is read from X-Forwarded-For, -Host and -Proto where one of them is there, else from Forwarded.
/// What cannot be understood, and whatever came before it, is not believed.
void applyForwarded(HttpRequest& head, const ReceivedRequest& received, const TrustedProxies& proxies);

}  // namespace gateway::http
