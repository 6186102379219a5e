#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace app {

/// A server that is started for one console: `numora serve` in a session of its own, out of reach of the
/// terminal's keys, on a free port and with a token that it makes itself.
///
/// It ends with the thread that has started it, however that ends, also when that has become another program.
class ConsoleServer {
public:
    /// `flags` are further ones of `numora serve`.
    /// To be called before there are other threads.  Throws: std::system_error.
    ConsoleServer(const std::string& program, const std::vector<std::string>& flags);

    pid_t pid() const { return pid_; }
    /// Where what it prints can be read, the line with its address first; programs that this process becomes
    /// inherit it.
    int output() const { return output_; }

    /// Asks it to end, and waits for that.
    void end() const;

private:
    pid_t pid_ = -1;
    int output_ = -1;
};

}  // namespace app
