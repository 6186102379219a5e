#pragma once

#include <memory>
#include <string>

#include <CLI/CLI.hpp>

namespace app {

/// How help is written: commands, arguments and options in the words of the documentation.
std::shared_ptr<CLI::FormatterBase> helpFormatter();

/// What is wrong with the arguments that `used`, the program, has parsed, and where help is.
std::string failureText(const CLI::App& used, const CLI::Error& error);

/// Names the commands of `app` that are not hidden, as "list, create and delete".
std::string commandsOf(const CLI::App& app);

}  // namespace app
