#pragma once

#include <array>

namespace app {

/// What a process that runs an interpreter for another one is like from its first moment: in a session of its
/// own, ending with its parent, and with the descriptors that it was given out of the way of user code.
///
/// There is one in the life of a process.  Threads: made before there are others; `endGroup` any.
class WorkerProcess {
public:
    /// Throws: InputError, when it was not started as a worker.
    WorkerProcess();

    // Of the link, the black box, the traces, and the read ends of the pipes of standard output and error.
    int main() const { return descriptors_[0]; }
    int control() const { return descriptors_[1]; }
    int blackBox() const { return descriptors_[2]; }
    int trace() const { return descriptors_[3]; }
    std::array<int, 2> pipes() const { return {descriptors_[4], descriptors_[5]}; }

    /// Ends this process with all that it has started and that did not leave its group. Does nothing in a
    /// forked child.
    static void endGroup();
    /// Ends this process alone, with the status by which the one that has started it knows that it could not
    /// use the link, and ends what it has left. Does nothing in a forked child.
    static void endForLink();

private:
    std::array<int, 6> descriptors_{};
};

}  // namespace app
