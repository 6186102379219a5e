#include "supervisor/DeathRecord.h"

#include "connector/json/ObjectBuilder.h"
#include "foundation/core/utcText.h"
#include "signalNames.h"

namespace supervisor {

namespace {

using connector::json::ObjectBuilder;

/// "SIGSEGV (segmentation fault)", "it exited with status 3".
std::string inWords(const std::string& detail) {
    if (detail.starts_with("status ")) return "it exited with " + detail;
    const std::string meaning = signalMeaning(detail);
    return meaning.empty() ? detail : detail + " (" + meaning + ")";
}

/// What happened, after the name of the interpreter.
std::string happened(const DeathRecord& record) {
    if (record.cause == cause::killedByAClient) return "was restarted by a client";
    if (record.cause == cause::deletedByAClient) return "was deleted by a client";
    if (record.cause == cause::idle) return "was ended because it was idle";
    if (record.cause == cause::serverStopped) return "was ended with the server";
    if (record.cause == cause::memory) return "ran out of memory";
    if (record.cause == cause::startFailed) return "could not start: " + inWords(record.detail);
    if (record.cause == cause::closedTheLink) return "has died: it closed its connection to the server";
    if (record.cause == cause::signal || record.cause == cause::exitStatus)
        return "has died: " + inWords(record.detail);
    return "has died: " + record.cause;
}

/// What it means for clients, as further sentences.
std::string consequence(const DeathRecord& record) {
    if (record.cause == cause::startFailed) {
        return record.startsAnew ? "The next request tries it again."
                                 : "It stays ended until a client restarts it.";
    }
    if (record.cause == cause::killedByAClient || record.cause == cause::deletedByAClient ||
        record.cause == cause::serverStopped)
        return "Its variables are lost.";
    return record.startsAnew ? "Its variables are lost; the next request starts it anew."
                             : "Its variables are lost, and it stays ended until a client restarts it.";
}

ObjectBuilder briefOf(const DeathRecord& record) {
    ObjectBuilder object;
    object.add("life", record.life).add("cause", record.cause).add("detail", record.detail);
    object.add("sentence", record.sentence()).add("ended", foundation::core::utcText(record.ended));
    return object;
}

}  // namespace

bool DeathRecord::isBad() const {
    return cause != cause::killedByAClient && cause != cause::deletedByAClient && cause != cause::idle &&
           cause != cause::serverStopped;
}

std::string DeathRecord::sentence() const {
    // Of code that is streamed it is a channel, which tells people nothing.
    const std::string what = requestType.starts_with('/') ? "code" : requestType;
    const std::string during = what.empty() ? "" : " while it ran " + what;
    return "The interpreter \"" + interpreter + "\" " + happened(*this) + during + ". " + consequence(*this);
}

std::string DeathRecord::brief() const { return briefOf(*this).take(); }

std::string DeathRecord::json() const {
    ObjectBuilder object;
    object.add("interpreter", interpreter).addMembers(briefOf(*this));
    object.add("pid", pid).add("started", foundation::core::utcText(started));
    if (requestType.empty())
        object.addJson("request", "null");
    else
        object.add(
            "request",
            ObjectBuilder().add("type", requestType).add("uuid", requestUuid).add("code", requestCode));
    object.add("inFlight", inFlight).add("output", output).add("rest", rest).add("trace", trace);
    object.add("peakMemoryBytes", peakMemoryBytes).add("processorMs", processorMs);
    object.add("childrenKilled", childrenKilled);
    return object.take();
}

}  // namespace supervisor
