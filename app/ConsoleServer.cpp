#include "ConsoleServer.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "arguments.h"

namespace app {

namespace {

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

// What the environment says of servers is meant for those that the user starts.
void forgetSettings() {
    std::vector<std::string> names;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view variable = *entry;
        if (variable.starts_with("NUMORA_")) names.emplace_back(variable.substr(0, variable.find('=')));
    }
    for (const auto& name : names) {
        if (name != "NUMORA_BUNDLES") ::unsetenv(name.c_str());
    }
}

[[noreturn]] void becomeServer(const char* program, char* const* arguments, int output, pid_t parent) {
    ::setsid();
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) ::_exit(0);
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::dup2(nothing, STDIN_FILENO);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    forgetSettings();
    ::execv(program, arguments);
    ::_exit(1);
}

}  // namespace

ConsoleServer::ConsoleServer(const std::string& program, const std::vector<std::string>& flags) {
    std::vector<std::string> words{program, "serve", "--host", "127.0.0.1", "--port", "0"};
    words.insert(words.end(), flags.begin(), flags.end());
    const Arguments arguments(std::move(words));
    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) != 0) fail("a pipe cannot be made");
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ == 0) becomeServer(program.c_str(), arguments.get(), pipe[1], parent);
    ::close(pipe[1]);
    output_ = pipe[0];
    if (pid_ < 0) fail("the interpreter of the console cannot be started");
    ::fcntl(output_, F_SETFD, 0);
}

void ConsoleServer::end() const {
    ::kill(pid_, SIGTERM);
    ::close(output_);
    while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace app
