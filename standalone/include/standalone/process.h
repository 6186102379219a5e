#pragma once

namespace standalone {

/// What concerns the whole process around a host.

/// Blocks, for the calling thread and all that it starts, the signals that belong to the interpreter thread:
/// SIGINT and SIGRTMIN.
void blockInterpreterSignals();
/// Lets them through again; for the interpreter thread itself.
void unblockInterpreterSignals();

/// Has `handler` called for each SIGINT that comes from outside this process, such as Ctrl-C at a terminal,
/// where it would interrupt the running code, which it does when `handler` returns false; null ends that.
/// Code that sets a handler of its own for SIGINT gets the signal while it runs.  Threads: it runs as a
/// signal handler does, on any thread.
void setOutsideInterruptHandler(bool (*handler)());
/// Calls that handler. False when there is none, or it returns that.  Threads: any; in signal handlers, too.
bool callOutsideInterruptHandler();

/// Opens /dev/null for those of the file descriptors 0 to 2 that are closed, so that other files do not get
/// their numbers. A host does it; a program that opens files before calls it first.
void openStandardStreams();

}  // namespace standalone
