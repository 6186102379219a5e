#pragma once

#include <memory>
#include <thread>

namespace connector {

/// Keeps `thread`, whose owner is destroyed on that very thread and so cannot join it. It is joined with the
/// next one that is kept once it has ended, or as this library is unloaded.
///
/// `work` refers to what the thread's function holds until it returns, which must be soon.
///
/// Threads: any.  Blocks: never for a thread that has not ended.  Throws: nothing; the process ends where
/// there is no memory to keep a thread that nobody could join.
void joinLater(std::thread thread, std::weak_ptr<const void> work);

}  // namespace connector
