#pragma once

namespace app {

/// What the process has to be like before anything else happens in it: file descriptors 0 to 2 are open, so
/// that no other file or socket gets their numbers; a broken pipe is told by the write that fails; an
/// allocation that fails says so in plain English; and what has been freed goes back to the system.
///
/// Threads: before there are others.
void prepareProcess();

}  // namespace app
