#pragma once

#include <exception>
#include <string>

#include <Poco/Exception.h>

namespace connector {

/// What went wrong, for a person: the text of `error` without the kind of exception that Poco's texts begin
/// with.  Threads: any.
inline std::string errorText(const std::exception& error) {
    const auto* const ofPoco = dynamic_cast<const Poco::Exception*>(&error);
    if (ofPoco == nullptr) return error.what();
    return ofPoco->message().empty() ? ofPoco->displayText() : ofPoco->message();
}

}  // namespace connector
