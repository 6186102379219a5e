#pragma once

#include "HttpReply.h"
#include "connector/json/parse.h"
#include "dispatch/members.h"
#include "interpreters/Registry.h"

namespace gateway::interpreters {

/// Calls `action`; what it throws becomes the reply: a Refusal, dispatch::BadMessage or
/// connector::json::ParseError.
template <class Action>
HttpReply replyOf(Action action) {
    try {
        return action();
    } catch (const Refusal& refusal) {
        return errorReply(refusal.status(), refusal.what());
    } catch (const dispatch::BadMessage& problem) {
        return errorReply(400, problem.what());
    } catch (const connector::json::ParseError& problem) {
        return errorReply(400, problem.what());
    }
}

}  // namespace gateway::interpreters
