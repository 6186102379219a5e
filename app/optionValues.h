#pragma once

#include <cstdint>
#include <string>

#include <CLI/CLI.hpp>

namespace app {

/// The integer that the text given for an option stands for. `variable` is the environment variable that may
/// give it instead, or empty.
/// Throws: CLI::ValidationError, which names the option or the variable and says what it must be.
std::int64_t integerOf(const std::string& option, const std::string& variable, const std::string& text,
                       std::int64_t least, std::int64_t most);

/// The name of what has given a value: the environment variable, if it holds the value, else the option.
std::string nameOf(const std::string& option, const std::string& variable, const std::string& value);

/// Adds an option whose value must be an integer from `least` to `most`.
template <class Value>
CLI::Option* addInteger(CLI::App& command, const std::string& option, Value& value, std::int64_t least,
                        std::int64_t most, const std::string& description, const std::string& variable = {}) {
    return command
        .add_option_function<std::string>(
            option,
            [=, &value](const std::string& text) {
                value = static_cast<int>(integerOf(option, variable, text, least, most));
            },
            description + " (" + std::to_string(least) + " to " + std::to_string(most) + ")")
        ->envname(variable);
}

/// Throws: InputError unless `level` is one of the levels of the log; `what` names the setting.
void requireLogLevel(const std::string& what, const std::string& level);

}  // namespace app
