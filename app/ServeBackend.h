#pragma once

#include <memory>

#include "connector/ServiceFramework.h"
#include "connector/json/JsonSerializer.h"
#include "messages/LocalMessageService.h"
#include "messages/RequestCounter.h"

namespace app {

/// What `numora serve` lets clients reach.
///
/// Threads: made and destroyed on one thread; `isReady` and `isReadingInput` from any.
class ServeBackend {
public:
    virtual ~ServeBackend() = default;
    virtual bool isReady() const = 0;
    /// Whether code waits for what a client types.
    virtual bool isReadingInput() const { return false; }
    /// The program's own standard output: a file descriptor, valid as long as this is.
    virtual int standardOutput() const = 0;

    std::shared_ptr<connector::ServiceFramework> framework;
    std::shared_ptr<connector::json::JsonSerializer> serializer;
    std::shared_ptr<messages::LocalMessageService> messages;
    std::shared_ptr<const messages::RequestCounter> streaming;  ///< null without streaming
};

/// An interpreter in this process.  Blocks: until it takes requests.
std::unique_ptr<ServeBackend> makeInterpreterBackend();

/// Fixed answers, without an interpreter and without streaming.
std::unique_ptr<ServeBackend> makeMockBackend();

}  // namespace app
