#pragma once

#include <cstddef>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "connector/Future.h"
#include "connector/Message.h"

namespace connector::detail {

inline Future<std::unique_ptr<Message>> deliveryFailure(const std::string& text) {
    return makeFailedFuture<std::unique_ptr<Message>>(std::make_exception_ptr(std::runtime_error(text)));
}

/// Names are those of the platform's type information; a null `found` has that of `nullptr`.
inline std::string wrongMessageTypeText(const std::string& expected, const Message* found) {
    const auto& foundType = found ? typeid(*found) : typeid(std::nullptr_t);
    return "Incorrect message type. Expected: " + expected + " but found " + foundType.name();
}

inline Future<std::unique_ptr<Message>> wrongMessageType(const std::string& start,
                                                         const std::type_info& expected,
                                                         const Message* found) {
    return deliveryFailure(start + wrongMessageTypeText(expected.name(), found));
}

}  // namespace connector::detail
