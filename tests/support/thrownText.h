#pragma once

#include <stdexcept>
#include <string>
#include <utility>

/// The text of the std::runtime_error that `action` throws, or "nothing thrown".
template <class Action>
std::string thrownText(Action&& action) {
    try {
        std::forward<Action>(action)();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing thrown";
}
