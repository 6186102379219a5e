#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "supervisor/DeathRecord.h"
#include "supervisor/Worker.h"
#include "supervisor/WorkerSpec.h"

namespace supervisor {

/// Starts worker processes and sees each of them die.
///
/// One thread starts and reaps all of them; it lives as long as this object, since the signal that a worker
/// gets when its parent is gone comes when the thread that started it ends. A process with the number 1, or
/// that is a subreaper, also reaps strangers.
///
/// Threads: every operation from any thread but its own. Callbacks run on its own thread, one at a time, with
/// no lock held; they must be quick, and may call spawn().
class Supervisor {
public:
    /// `problem`: why there is no worker, as the `detail` of a record of a start that failed; empty when
    /// there is one.
    using Spawned = std::function<void(std::shared_ptr<Worker> worker, std::string problem)>;
    using Ended = std::function<void(DeathRecord record)>;

    /// Reads the environment, which workers get without NUMORA_* (but NUMORA_BUNDLES).
    /// Throws: std::system_error, when there are no descriptors left.
    Supervisor();
    /// Stops.
    ~Supervisor();
    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;

    /// Starts a worker. `spawned` is called once. When it was given a worker, `ended` is called once
    /// afterwards: its group is killed then, it is reaped, and all that it left but what its sockets hold is
    /// read. Blocks: never.
    void spawn(WorkerSpec spec, Spawned spawned, Ended ended);

    /// Kills all workers; from now on spawn() gives none. Each `ended` has been called when it returns,
    /// unless one did not die in time.  Blocks: until they are dead, at most for `limit`.
    void stop(std::chrono::milliseconds limit = std::chrono::seconds(10));

private:
    class Core;
    std::unique_ptr<Core> core_;
};

}  // namespace supervisor
