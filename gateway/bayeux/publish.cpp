#include "bayeux/publish.h"

#include "bayeux/channelRules.h"
#include "bayeux/replies.h"
#include "connector/json/write.h"

namespace gateway::bayeux {

namespace {

// Says that the data holds bytes as text. It is the one extension that others have to see.
constexpr const char* binaryMember = R"(,"ext":{"binary":{}})";

}  // namespace

std::string publish(standalone::ClientSession& session, const Request& request) {
    const auto& channel = request.channel();
    if (!isPortableName(channel)) return failed(request, errorText(405, channel, "bad channel name"));
    if (isServersOwn(channel)) return failed(request, errorText(403, channel, "denied"));
    if (!request.has("data")) return failed(request, errorText(400, "missing data"));
    const bool isBinary = !objectOf(request.extension("binary")).isNull();
    session.publish(channel, connector::json::written(request.get("data")), nullptr,
                    isBinary ? binaryMember : "");
    return succeeded(request);
}

}  // namespace gateway::bayeux
