#include "bayeux/Subscriptions.h"

#include <algorithm>

#include <Poco/JSON/Array.h>

#include "bayeux/channelRules.h"
#include "bayeux/replies.h"
#include "connector/json/write.h"

namespace gateway::bayeux {

using Poco::Dynamic::Var;
using Poco::JSON::Array;

namespace {

/// The names in a message and, when they cannot be taken, why.
struct Names {
    std::set<std::string> patterns;  // without those of services, to which nothing is broadcast
    std::string error;
};

void add(Names& names, const std::string& pattern) {
    if (!isPortablePattern(pattern)) {
        names.error = errorText(405, "bad channel name");
    } else if (isMeta(pattern)) {
        names.error = errorText(403, pattern, "denied");
    } else if (isOfNoInterpreter(pattern)) {
        names.error = errorText(404, pattern, "no such interpreter");
    } else if (!isService(pattern)) {
        names.patterns.insert(pattern);
    }
}

Names namesIn(const Request& request) {
    Names names;
    const Var value = request.get("subscription");
    if (value.type() == typeid(Array::Ptr)) {
        const auto& array = *value.extract<Array::Ptr>();
        if (array.size() == 0) names.error = errorText(400, "missing subscription");
        for (const Var& element : array) add(names, textOf(element));
    } else if (value.isEmpty()) {
        names.error = errorText(400, "missing subscription");
    } else {
        add(names, textOf(value));
    }
    return names;
}

std::string echoOf(const Request& request) {
    if (!request.has("subscription")) return "";
    return R"(,"subscription":)" + connector::json::written(request.get("subscription"));
}

}  // namespace

std::string Subscriptions::subscribe(const Request& request) {
    auto names = namesIn(request);
    if (names.error.empty()) {
        const auto added = std::ranges::count_if(
            names.patterns, [this](const auto& pattern) { return !patterns_.contains(pattern); });
        if (patterns_.size() + static_cast<std::size_t>(added) > limit_) {
            names.error = errorText(429, "too many subscriptions");
        }
    }
    if (!names.error.empty()) return failed(request, names.error, echoOf(request));
    // A client that comes back says which message it knows.
    const auto after = numberOf(request.ownExtension("after"));
    // Before it is subscribed, so that it may get a message twice when it comes back, but misses none.
    const auto last = session_->lastNumber();
    if (after) {
        session_->subscribe({names.patterns.begin(), names.patterns.end()},
                            static_cast<std::uint64_t>(*after));
    } else {
        for (const auto& pattern : names.patterns) session_->subscribe(pattern);
    }
    patterns_.merge(names.patterns);
    return succeeded(request,
                     echoOf(request) + R"(,"ext":{"connector":{"seq":)" + std::to_string(last) + "}}");
}

std::string Subscriptions::unsubscribe(const Request& request) {
    const auto names = namesIn(request);
    if (!names.error.empty()) return failed(request, names.error, echoOf(request));
    for (const auto& pattern : names.patterns) {
        session_->unsubscribe(pattern);
        patterns_.erase(pattern);
    }
    return succeeded(request, echoOf(request));
}

}  // namespace gateway::bayeux
