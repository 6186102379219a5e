#pragma once

#include <filesystem>

namespace host {

/// The folder from which the shared library of this interface was loaded: what is installed with the library
/// is found from there, whatever program uses it and wherever it was moved to. Empty when it is not known.
/// Threads: any.
std::filesystem::path libraryFolder();

}  // namespace host
