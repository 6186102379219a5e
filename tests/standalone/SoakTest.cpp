#include <fstream>

#include <unistd.h>

#include "RunningInterpreter.h"

namespace {

using SoakTest = RunningInterpreter;

// Sanitizers keep freed memory on purpose: they see the loop, and its growth is measured without them.
TEST_F(SoakTest, manyEvaluationsLeaveMemoryFlat) {
    const auto bytesAfter = [this](int count) {
        for (int i = 0; i < count; ++i) eval(u"x = [i for i in range(10)]\nprint(x)\nlen(x)");
        std::size_t total = 0, resident = 0;
        std::ifstream("/proc/self/statm") >> total >> resident;
        return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    };
    [[maybe_unused]] const std::size_t before = bytesAfter(500), after = bytesAfter(5'000);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(after, before + (std::size_t{4} << 20));
#endif
}

}  // namespace
