#pragma once

// glibc 2.36 declares these without saying that they are of C.
extern "C" {
#include <sys/pidfd.h>
}
