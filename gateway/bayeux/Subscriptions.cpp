#include "bayeux/Subscriptions.h"

#include <algorithm>

#include <Poco/JSON/Array.h>

#include "bayeux/channelRules.h"
#include "bayeux/replies.h"
#include "connector/json/write.h"
#include "connector/wireWords.h"
#include "ports/InterpreterPort.h"

namespace gateway::bayeux {

using Poco::Dynamic::Var;
using Poco::JSON::Array;

namespace {

constexpr dispatch::Member ownMembers[] = {
    {.name = "after", .kind = dispatch::Member::Kind::Integer, .most = dispatch::unlimited},
    {.name = "life", .kind = dispatch::Member::Kind::Integer, .most = dispatch::unlimited}};

/// The names in a message and, when they cannot be taken, why not.
struct Names {
    std::set<std::string> patterns;  // without those of services, to which nothing is broadcast
    std::string error;
};

void add(Names& names, const std::string& pattern) {
    if (!isPortablePattern(pattern)) {
        names.error = errorText(405, "bad channel name");
    } else if (isMeta(pattern) || pattern == connector::wire::channel::evalRequest) {
        names.error = errorText(403, pattern, "denied");
    } else if (isOfUnknownInterpreter(pattern)) {
        names.error = errorText(404, pattern, "no such interpreter");
    } else if (!isService(pattern)) {
        names.patterns.insert(pattern);
    }
}

Names namesIn(const ClientMessage& message) {
    Names names;
    const Var value = message.get("subscription");
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

Members echoOf(const ClientMessage& message) {
    Members echo;
    if (message.has("subscription")) {
        echo.addJson("subscription", connector::json::written(message.get("subscription")));
    }
    return echo;
}

}  // namespace

std::string Subscriptions::subscribe(const ClientMessage& message) {
    auto names = namesIn(message);
    if (names.error.empty()) {
        const auto added = std::ranges::count_if(
            names.patterns, [this](const auto& pattern) { return !patterns_.contains(pattern); });
        if (patterns_.size() + static_cast<std::size_t>(added) > limit_) {
            names.error = errorText(429, "too many subscriptions");
        }
    }
    try {
        message.checkOwnExtensions(ownMembers);
    } catch (const dispatch::BadMessage& problem) {
        names.error = errorText(400, problem.what());
    }
    if (!names.error.empty()) return failed(message, names.error, echoOf(message));
    // A client that comes back says which message it knows.
    const auto after = numberOf(message.ownExtension("after"));
    // Before it is subscribed, so that it may get a message twice when it comes back, but misses none.
    const auto last = session_->lastNumber();
    if (after) {
        session_->subscribe({names.patterns.begin(), names.patterns.end()},
                            static_cast<std::uint64_t>(*after));
    } else {
        for (const auto& pattern : names.patterns) session_->subscribe(pattern);
    }
    patterns_.merge(names.patterns);
    Members own;
    own.add("seq", last);
    if (const auto life = port_.life(); life > 0) own.add("life", life);
    return succeeded(message, echoOf(message).add("ext", Members().add("connector", own)));
}

std::string Subscriptions::unsubscribe(const ClientMessage& message) {
    const auto names = namesIn(message);
    if (!names.error.empty()) return failed(message, names.error, echoOf(message));
    for (const auto& pattern : names.patterns) {
        session_->unsubscribe(pattern);
        patterns_.erase(pattern);
    }
    return succeeded(message, echoOf(message));
}

}  // namespace gateway::bayeux
