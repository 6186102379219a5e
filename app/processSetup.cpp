#include "processSetup.h"

#include <csignal>
#include <new>

#include <malloc.h>

#include "connector/common/DataBuffer.h"
#include "standalone/StandaloneHost.h"

namespace app {

namespace {

// By default each thread gets an arena of its own, none of which shrinks while its last block is in use, and
// the sizes below grow with the largest block that was ever freed, up to 32 and 64 MiB.
void returnFreedMemory() {
    constexpr int mebibyte = 1 << 20;
    ::mallopt(M_ARENA_MAX, 1);
    ::mallopt(M_MMAP_THRESHOLD, mebibyte);
    ::mallopt(M_TRIM_THRESHOLD, 4 * mebibyte);
}

}  // namespace

void prepareProcess() {
    standalone::openStandardStreams();
    std::signal(SIGPIPE, SIG_IGN);
    std::set_new_handler([] { throw connector::common::OutOfMemory(); });
    returnFreedMemory();
}

}  // namespace app
