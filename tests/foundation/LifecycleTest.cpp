#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "connector/common/Lifecycle.h"

namespace {

/// Writes down each hook with the flag as the hook sees it.
class Recorder : public connector::common::Lifecycle {
public:
    std::string log;
    bool fails = false;

protected:
    void doStart() override { record("start"); }
    void doStop() override { record("stop"); }

private:
    void record(const std::string& hook) {
        log += hook + (isRunning() ? " running;" : " stopped;");
        if (fails) throw std::runtime_error(hook);
    }
};

TEST(LifecycleTest, runsEachHookOncePerChangeWithTheFlagClearAlsoAfterOneThatFails) {
    Recorder service;
    service.stop();
    for (int i = 0; i < 2; ++i) service.start();
    EXPECT_TRUE(service.isRunning());
    for (int i = 0; i < 2; ++i) service.stop();
    service.fails = true;
    EXPECT_THROW(service.start(), std::runtime_error);
    EXPECT_FALSE(service.isRunning());
    service.fails = false;
    service.start();
    service.fails = true;
    EXPECT_THROW(service.stop(), std::runtime_error);
    EXPECT_FALSE(service.isRunning());
    EXPECT_EQ(service.log, "start stopped;stop stopped;start stopped;start stopped;stop stopped;");
}

}  // namespace
