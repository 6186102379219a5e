#pragma once

#include <memory>
#include <string>

namespace event_json_converter {
class EventToJsonConverter;
}

namespace connector::interpreter::v1 {

/// The service that converts events with this tag; null when there is none. It stays usable while it is held.
/// Threads: any.
std::shared_ptr<event_json_converter::EventToJsonConverter> converterFor(const std::string& tag);

}  // namespace connector::interpreter::v1
