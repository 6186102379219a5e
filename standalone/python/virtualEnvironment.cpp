#define PY_SSIZE_T_CLEAN
#include "standalone/virtualEnvironment.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <stdexcept>

#include <Python.h>

namespace standalone {

namespace {

constexpr const char* embeddedVersion = Py_STRINGIFY(PY_MAJOR_VERSION) "." Py_STRINGIFY(PY_MINOR_VERSION);

// The version, such as "3.11"; empty where the file does not say.
std::string versionIn(std::istream& configuration) {
    static const std::regex version(R"(\s*version(_info)?\s*=\s*(\d+\.\d+).*)");
    std::smatch match;
    for (std::string line; std::getline(configuration, line);) {
        if (std::regex_match(line, match, version)) return match[2];
    }
    return {};
}

}  // namespace

std::string programOf(const std::string& folder) {
    const auto root = std::filesystem::absolute(folder);
    std::ifstream configuration(root / "pyvenv.cfg");
    const auto program = root / "bin" / "python";
    if (!configuration || !std::filesystem::exists(program)) {
        throw std::runtime_error("The folder " + root.string() + " is no virtual environment.");
    }
    const std::string version = versionIn(configuration);
    if (version != embeddedVersion) {
        throw std::runtime_error("The virtual environment " + root.string() + " is for Python " +
                                 (version.empty() ? "of an unknown version" : version) +
                                 "; it must be for Python " + embeddedVersion +
                                 ", which is the interpreter's.");
    }
    return program.string();
}

}  // namespace standalone
