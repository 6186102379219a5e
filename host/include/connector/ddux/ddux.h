#pragma once

/// Usage telemetry: records of what is used, which the environment keeps or drops.

#include <memory>
#include <string>
#include <utility>

#include "connector/Future.h"

namespace connector::ddux {

/// One record.
class DduxControlMessage {
public:
    DduxControlMessage(std::string source, std::string eventName, std::string payload)
        : source_(std::move(source)), eventName_(std::move(eventName)), payload_(std::move(payload)) {}

    const std::string& source() const { return source_; }
    const std::string& eventName() const { return eventName_; }
    const std::string& payload() const { return payload_; }

private:
    std::string source_;
    std::string eventName_;
    std::string payload_;
};

/// The answer to a record: whether it was kept.
struct DduxControlResponse {
    bool isRecorded = false;
};

/// Whether records are wanted; false where the environment keeps none.  Threads: any.
bool isDduxEnabled();

/// Hands a record to the environment. The future fails when it could not be kept.
/// Threads: any.  Blocks: no longer than it takes to queue the record.
Future<std::unique_ptr<DduxControlResponse>> logEvent(std::unique_ptr<DduxControlMessage>&& record);

}  // namespace connector::ddux
