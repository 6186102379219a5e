#include "Spawn.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include "link/BlackBox.h"
#include "pidfd.h"

namespace supervisor {

namespace {

[[noreturn]] void fail(const std::string& what, int error) {
    throw std::runtime_error(what + ": " + std::strerror(error));
}

/// A new descriptor, moved out of the way of those that the worker gets, 0 to 8: where this process was
/// started without standard input or output, new ones have such numbers.
Descriptor movedUp(Descriptor made) {
    constexpr int firstFree = 9;
    if (made.get() >= firstFree) return made;
    Descriptor moved(made.get() < 0 ? -1 : ::fcntl(made.get(), F_DUPFD_CLOEXEC, firstFree));
    // A limit that forbids all numbers from firstFree on is "invalid" to fcntl, and the same to a reader.
    if (moved.get() < 0) fail("no descriptors are left for its connection", errno == EINVAL ? EMFILE : errno);
    return moved;
}

struct Ends {
    Descriptor ours;
    Descriptor theirs;
};

/// Takes what socketpair() or pipe() have made, or nothing.
Ends bothEnds(int result, const int (&made)[2]) {
    Ends ends{Descriptor(result == 0 ? made[0] : -1), Descriptor(result == 0 ? made[1] : -1)};
    return {movedUp(std::move(ends.ours)), movedUp(std::move(ends.theirs))};
}

Ends socketEnds() {
    int made[2];
    const int result = ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, made);
    Ends ends = bothEnds(result, made);
    // Ours alone: how the worker uses its end is up to it.
    if (::fcntl(ends.ours.get(), F_SETFL, O_RDWR | O_NONBLOCK) != 0) fail("cannot make a socket", errno);
    return ends;
}

Ends pipeEnds() {
    int made[2];
    const int result = ::pipe2(made, O_CLOEXEC);
    return bothEnds(result, made);
}

Descriptor blackBox() {
    try {
        return movedUp(Descriptor(links::createBlackBox()));
    } catch (const std::system_error& error) {
        fail("cannot make its black box", error.code().value());
    }
}

/// What posix_spawn is told of descriptors and folder.
class FileActions {
public:
    FileActions() { check(::posix_spawn_file_actions_init(&actions_)); }
    ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    void open(int number, const char* path) {
        check(::posix_spawn_file_actions_addopen(&actions_, number, path, O_RDONLY, 0));
    }
    void give(const Descriptor& descriptor, int number) {
        check(::posix_spawn_file_actions_adddup2(&actions_, descriptor.get(), number));
    }
    void closeFrom(int number) { check(::posix_spawn_file_actions_addclosefrom_np(&actions_, number)); }
    void enter(const std::filesystem::path& folder) {
        check(::posix_spawn_file_actions_addchdir_np(&actions_, folder.c_str()));
    }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    static void check(int error) {
        if (error != 0) fail("cannot prepare it", error);
    }
    posix_spawn_file_actions_t actions_;
};

/// A session and a group of its own, default signals, none of them blocked.
class Attributes {
public:
    Attributes() {
        ::posix_spawnattr_init(&attributes_);
        sigset_t signals;
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes_, &signals);
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes_, &signals);
        ::posix_spawnattr_setflags(&attributes_,
                                   POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_;
};

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

pid_t run(const WorkerSpec& spec, std::vector<std::string> environment, FileActions& actions) {
    std::error_code problem;
    if (!spec.folder.empty() && !std::filesystem::is_directory(spec.folder, problem))
        throw std::runtime_error("folder must be an existing folder: " + spec.folder.string());
    if (!spec.folder.empty()) actions.enter(spec.folder);

    for (const auto& variable : spec.env) {
        const std::string name = variable.first + "=";
        std::erase_if(environment, [&](const std::string& other) { return other.starts_with(name); });
        environment.push_back(name + variable.second);
    }
    // Process lists show the program's name rather than the link that it is found by.
    const bool isOwn = spec.program == "/proc/self/exe";
    std::vector<std::string> arguments{isOwn ? ::program_invocation_short_name : spec.program.string()};
    arguments.insert(arguments.end(), spec.arguments.begin(), spec.arguments.end());

    const Attributes attributes;
    pid_t pid = 0;
    const int error = ::posix_spawn(&pid, spec.program.c_str(), actions.get(), attributes.get(),
                                    pointersTo(arguments).data(), pointersTo(environment).data());
    if (error != 0) fail("cannot run " + spec.program.string(), error);
    return pid;
}

// What the worker has inherited shares its flags with this process: it must not make reads here wait.
Descriptor openedAnew(const Descriptor& end) {
    const std::string path = "/proc/self/fd/" + std::to_string(end.get());
    Descriptor own(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (own.get() < 0) throw std::system_error(errno, std::generic_category(), "open");
    return own;
}

}  // namespace

std::vector<std::string> inheritedEnvironment() {
    std::vector<std::string> kept;
    for (char** at = ::environ; at != nullptr && *at != nullptr; ++at) {
        const std::string variable = *at;
        if (!variable.starts_with("NUMORA_") || variable.starts_with("NUMORA_BUNDLES="))
            kept.push_back(variable);
    }
    return kept;
}

Process spawn(const WorkerSpec& spec, std::vector<std::string> environment) {
    Ends main = socketEnds();
    Ends control = socketEnds();
    Ends output = pipeEnds();
    Ends errors = pipeEnds();
    Descriptor ownOutput = movedUp(openedAnew(output.ours));
    Descriptor ownErrors = movedUp(openedAnew(errors.ours));
    Process process;
    process.blackBox = blackBox();
    process.trace = movedUp(Descriptor(::memfd_create("trace", MFD_CLOEXEC)));

    FileActions actions;
    actions.open(0, "/dev/null");
    actions.give(output.theirs, 1);
    actions.give(errors.theirs, 2);
    actions.give(main.theirs, 3);
    actions.give(control.theirs, 4);
    actions.give(process.blackBox, 5);
    actions.give(process.trace, 6);
    actions.give(output.ours, 7);
    actions.give(errors.ours, 8);
    actions.closeFrom(9);
    process.pid = run(spec, std::move(environment), actions);

    process.pidfd = Descriptor(::pidfd_open(process.pid, 0));
    if (process.pidfd.get() < 0) {
        const int error = errno;
        ::kill(-process.pid, SIGKILL);
        ::waitpid(process.pid, nullptr, 0);
        fail("no descriptors are left to watch it", error);
    }
    process.mainSocket = std::move(main.ours);
    process.controlSocket = std::move(control.ours);
    process.output = std::move(ownOutput);
    process.errors = std::move(ownErrors);
    return process;
}

}  // namespace supervisor
