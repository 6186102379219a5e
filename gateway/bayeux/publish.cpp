#include "bayeux/publish.h"

#include "bayeux/channelRules.h"
#include "bayeux/replies.h"
#include "connector/common/ContextState.h"
#include "connector/json/write.h"
#include "connector/wireWords.h"

namespace gateway::bayeux {

using connector::common::ClientRequests;
using connector::common::ContextState;

namespace {

// Says that the data holds bytes as text. It is the one extension that others have to see.
constexpr const char* binaryMember = R"(,"ext":{"binary":{}})";

}  // namespace

std::string publish(messages::ClientSession& session, const Request& request,
                    const std::shared_ptr<ClientRequests>& evaluations, std::size_t mostEvaluations) {
    const auto& channel = request.channel();
    if (!isPortableName(channel)) return failed(request, errorText(405, channel, "bad channel name"));
    if (isServersOwn(channel)) return failed(request, errorText(403, channel, "denied"));
    if (!request.has("data")) return failed(request, errorText(400, "missing data"));
    std::shared_ptr<ContextState> context;
    if (channel == connector::wire::channel::evalRequest) {
        if (evaluations->count() >= mostEvaluations) {
            return failed(request, errorText(429, channel, "too many evaluations are waiting"));
        }
        context = std::make_shared<ContextState>();
        context->set(ClientRequests::contextKey, evaluations);
    }
    const bool isBinary = !objectOf(request.extension("binary")).isNull();
    session.publish(channel, connector::json::written(request.get("data")), context,
                    isBinary ? binaryMember : "");
    return succeeded(request);
}

}  // namespace gateway::bayeux
