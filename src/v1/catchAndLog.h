#pragma once

#include <exception>
#include <string>

#include "v1/log.h"

namespace connector::interpreter::v1 {

/// Runs `action`, and logs what it throws as an error in `where`.
template <class Action>
void catchAndLog(const std::string& where, const Action& action) {
    try {
        action();
    } catch (const std::exception& error) {
        asyncLog().error("Error in " + where + ": " + error.what() + "\n");
    } catch (...) {
        asyncLog().error("Unknown error in " + where);
    }
}

}  // namespace connector::interpreter::v1
