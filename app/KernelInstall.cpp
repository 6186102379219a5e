#include "KernelInstall.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "connector/json/ObjectBuilder.h"
#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "jupyter/logo.h"
#include "text.h"

namespace app {

namespace {

namespace fs = std::filesystem;
using Poco::JSON::Object;

constexpr const char* specFile = "kernel.json";
constexpr std::string_view logo =
    R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 16 16"><rect width="16" height="16" rx="3" fill="#215a8e"/>)"
    R"(<path d="M4 4l4 4-4 4M9 12h4" fill="none" stroke="#fff" stroke-width="2"/></svg>)"
    "\n";

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

fs::path dataOfUser() {
    if (const auto folder = variable("JUPYTER_DATA_DIR"); !folder.empty()) return folder;
    if (const auto folder = variable("XDG_DATA_HOME"); !folder.empty()) return fs::path(folder) / "jupyter";
    return fs::path(variable("HOME")) / ".local/share/jupyter";
}

std::vector<fs::path> kernelFolders() {
    std::vector<fs::path> data;
    std::istringstream path(variable("JUPYTER_PATH"));
    for (std::string folder; std::getline(path, folder, ':');) {
        if (!folder.empty()) data.emplace_back(folder);
    }
    data.insert(data.end(), {dataOfUser(), "/usr/local/share/jupyter", "/usr/share/jupyter"});
    for (auto& folder : data) folder /= "kernels";
    return data;
}

// Names are the same in either case.
std::string folderNameOf(std::string name) {
    std::ranges::transform(name, name.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return name;
}

bool startsThisProgram(const Object& spec) {
    const auto arguments = spec.getArray("argv");
    return !arguments.isNull() && arguments->size() > 1 &&
           fs::path(arguments->optElement<std::string>(0, "")).filename() == "numora" &&
           arguments->optElement<std::string>(1, "") == "kernel";
}

std::optional<InstalledKernel> kernelIn(const fs::path& folder) {
    try {
        std::ifstream file(folder / specFile);
        std::ostringstream text;
        text << file.rdbuf();
        const auto spec = connector::json::parse(text.str()).extract<Object::Ptr>();
        if (!startsThisProgram(*spec)) return std::nullopt;
        return InstalledKernel{.name = folder.filename(),
                               .displayName = spec->optValue<std::string>("display_name", ""),
                               .folder = folder};
    } catch (const std::exception&) {
        return std::nullopt;  // it is none of ours
    }
}

std::string specOf(const std::string& displayName, const std::vector<std::string>& arguments) {
    std::string argv;
    for (const auto& argument : arguments) {
        argv += (argv.empty() ? "" : ", ") + connector::json::quoted(argument);
    }
    return connector::json::ObjectBuilder()
               .addJson("argv", "[" + argv + "]")
               .add("display_name", displayName)
               .add("language", "python")
               .add("interrupt_mode", "message")
               .addJson("metadata", R"({"debugger":false})")
               .take() +
           "\n";
}

void writeFile(const fs::path& path, std::string_view text) {
    std::ofstream file(path, std::ios::trunc);
    file << text;
    file.close();
    if (!file) throw fs::filesystem_error("cannot be written", path, {errno, std::generic_category()});
}

}  // namespace

fs::path KernelFolder::path() const {
    if (!prefix.empty()) return fs::absolute(prefix) / "share/jupyter/kernels";
    return (isOfUser ? dataOfUser() : fs::path("/usr/local/share/jupyter")) / "kernels";
}

void requireKernelName(const std::string& name) {
    static const std::regex form("[A-Za-z0-9._-]+");
    if (!std::regex_match(name, form) || name.starts_with('.'))
        throw InputError("--name must consist of letters, digits and ._-, the first no dot: " + name);
}

fs::path installKernel(const KernelFolder& where, const std::string& name, const std::string& displayName,
                       const std::vector<std::string>& arguments) {
    requireKernelName(name);
    const fs::path folder = where.path() / folderNameOf(name);
    try {
        if (fs::exists(folder) && !kernelIn(folder))
            throw InputError(folder.string() +
                             " exists and does not start this program: --name must be another one");
        std::vector<std::string> command = {fs::read_symlink("/proc/self/exe").string(), "kernel"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        command.insert(command.end(), {"-f", "{connection_file}"});
        fs::create_directories(folder);
        writeFile(folder / specFile, specOf(displayName, command));
        writeFile(folder / "logo-svg.svg", logo);
        writeFile(folder / "logo-64x64.png", jupyter::logo64);
    } catch (const fs::filesystem_error& error) {
        const std::string hint =
            where.isOfUser || !where.prefix.empty() ? "" : "; --user installs it for you alone";
        throw InputError(error.path1().string() + " cannot be written: " + error.code().message() + hint);
    }
    return folder;
}

std::vector<InstalledKernel> installedKernels() {
    std::vector<InstalledKernel> kernels;
    for (const auto& folder : kernelFolders()) {
        std::error_code unreadable;
        std::vector<fs::path> entries;
        for (const auto& entry : fs::directory_iterator(folder, unreadable)) entries.push_back(entry.path());
        std::ranges::sort(entries);
        for (const auto& entry : entries) {
            if (auto kernel = kernelIn(entry)) kernels.push_back(std::move(*kernel));
        }
    }
    return kernels;
}

fs::path uninstallKernel(const KernelFolder* where, const std::string& name) {
    requireKernelName(name);
    const std::string wanted = folderNameOf(name);
    fs::path folder;
    if (where != nullptr) {
        if (kernelIn(where->path() / wanted)) folder = where->path() / wanted;
    } else {
        const auto kernels = installedKernels();
        const auto found =
            std::ranges::find(kernels, wanted, [](const auto& kernel) { return folderNameOf(kernel.name); });
        if (found != kernels.end()) folder = found->folder;
    }
    if (folder.empty())
        throw InputError("there is no kernel of numora called " + name + ": see numora kernel list");
    try {
        fs::remove_all(folder);
    } catch (const fs::filesystem_error& error) {
        throw InputError(folder.string() + " cannot be removed: " + error.code().message());
    }
    return folder;
}

}  // namespace app
