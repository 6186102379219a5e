#pragma once

/// What clients are answered for whom no process of the interpreter can do anything.  Threads: any.

#include <string_view>

#include "connector/json/ObjectBuilder.h"
#include "dispatch/Answer.h"
#include "supervisor/DeathRecord.h"

namespace gateway::ports {

inline dispatch::Answer tooMany() { return dispatch::errorAnswer(429, "Too many requests are waiting.", 1); }
inline dispatch::Answer stopped(std::string_view why) {
    const bool isDeleted = why == supervisor::cause::deletedByAClient;
    return dispatch::errorAnswer(503, isDeleted ? "The interpreter was deleted." : "The server is stopping.");
}

inline dispatch::Answer ofOtherLife() {
    return dispatch::errorAnswer(409, "The request is for a life of the interpreter that is over.");
}

inline dispatch::Answer notStarted(const supervisor::DeathRecord& record) {
    auto answer = dispatch::errorAnswer(503, record.sentence());
    answer.json =
        connector::json::ObjectBuilder().add("error", answer.problem).addJson("death", record.brief()).take();
    answer.death = record.brief();
    return answer;
}

}  // namespace gateway::ports
