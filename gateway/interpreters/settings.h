#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "ports/InterpreterSpec.h"

namespace gateway::interpreters {

/// Whether an interpreter may be called so: 1 to 63 of a-z, 0-9 and '-', of which the first is a letter.
bool isInterpreterId(std::string_view text);

/// Refuses the folder of a virtual environment that the interpreter could not use.
/// Throws: std::runtime_error, with what is wrong.
using CheckVenv = std::function<void(const std::filesystem::path&)>;

/// An id for an interpreter whose maker has named none.
std::string newInterpreterId();

/// What `json` says of an interpreter: docs/interpreters.md has its members. Without an id it gets `newId`.
/// Throws: dispatch::BadMessage, which names the member; connector::json::ParseError.
ports::InterpreterSpec readSpec(std::string_view json, const std::string& newId = newInterpreterId());

/// Throws: dispatch::BadMessage, which names the member, unless the process can be started where it says.
/// `checkVenv` may be null.
void requireFolders(const supervisor::WorkerSpec& spec, const CheckVenv& checkVenv);

}  // namespace gateway::interpreters
