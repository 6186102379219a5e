#include "procfs.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <optional>
#include <sstream>

#include <fcntl.h>

#include "supervisor/Descriptor.h"

namespace supervisor {

namespace {

struct Stat {
    char state = 0;
    pid_t group = 0;
    unsigned flags = 0;
};

std::optional<Stat> statOf(const std::string& pid) {
    // "1234 (name) state parent group session terminal itsGroup flags ...", where the name may hold anything.
    const std::string text = readText("/proc/" + pid + "/stat");
    const std::size_t afterName = text.rfind(')');
    if (afterName == std::string::npos) return std::nullopt;
    std::istringstream fields(text.substr(afterName + 1));
    Stat stat;
    long other = 0;
    fields >> stat.state >> other >> stat.group >> other >> other >> other >> stat.flags;
    return stat;
}

}  // namespace

std::string readText(const std::filesystem::path& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    if (file.get() < 0) return text;
    std::array<char, 4096> piece;
    ssize_t length = 0;
    while ((length = ::read(file.get(), piece.data(), piece.size())) > 0)
        text.append(piece.data(), static_cast<std::size_t>(length));
    return text;
}

int writeText(const std::filesystem::path& path, std::string_view text) {
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (file.get() < 0) return errno;
    return ::write(file.get(), text.data(), text.size()) < 0 ? errno : 0;
}

std::uint64_t numberAfter(std::string_view text, std::string_view name) {
    for (std::size_t at = 0; (at = text.find(name, at)) != std::string_view::npos; at += name.size()) {
        if (at != 0 && text[at - 1] != '\n') continue;
        const std::size_t digits = text.find_first_not_of(" \t", at + name.size());
        std::uint64_t number = 0;
        if (digits != std::string_view::npos && digits != at + name.size())
            std::from_chars(text.data() + digits, text.data() + text.size(), number);
        return number;
    }
    return 0;
}

std::uint64_t statusBytes(pid_t pid, std::string_view name) {
    return numberAfter(readText("/proc/" + std::to_string(pid) + "/status"), name) * 1024;
}

bool isEnding(pid_t pid) {
    constexpr unsigned exiting = 4;  // PF_EXITING of the kernel
    const auto stat = statOf(std::to_string(pid));
    return stat && (stat->flags & exiting) != 0;
}

std::uint64_t countMembers(pid_t group) {
    std::uint64_t members = 0;
    std::error_code problem;
    for (std::filesystem::directory_iterator at("/proc", problem), end; !problem && at != end;
         at.increment(problem)) {
        const std::string name = at->path().filename();
        if (name.front() < '0' || name.front() > '9' || name == std::to_string(group)) continue;
        const auto stat = statOf(name);
        members += stat && stat->group == group && stat->state != 'Z' && stat->state != 'X';
    }
    return members;
}

}  // namespace supervisor
