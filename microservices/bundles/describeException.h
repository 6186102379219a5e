#pragma once

#include <exception>
#include <string>

namespace cppmicroservices::detail {

/// The text of the exception that is being handled.
inline std::string describeCurrentException() {
    try {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "an exception of an unknown type";
    }
}

}  // namespace cppmicroservices::detail
