#pragma once

#include <functional>
#include <memory>

namespace app {

/// While it exists, SIGINT does not end the program but has `handler` called, unless SIGINT is ignored.
/// Threads: made and destroyed on one thread; `handler` runs on a thread of this, one call at a time.
class InterruptKey {
public:
    explicit InterruptKey(std::function<void()> handler);
    /// Blocks: while the handler runs.
    ~InterruptKey();
    InterruptKey(const InterruptKey&) = delete;
    InterruptKey& operator=(const InterruptKey&) = delete;

private:
    class Impl;
    const std::unique_ptr<Impl> impl_;  ///< null when SIGINT is ignored
};

}  // namespace app
