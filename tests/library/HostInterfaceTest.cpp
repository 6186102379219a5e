#include <memory>
#include <stdexcept>

#include <gtest/gtest.h>

#include "iqm/Iqm.h"
#include "support/FakeHost.h"
#include "zvm/detail.h"

namespace {

TEST(HostInterfaceTest, namesOfOtherInterpretersReachNoneHere) {
    fake::FakeHost host;
    using nmutil::contextmgr::NcrID;
    const auto distributorOf = [](const zvm::detail::Target& target) {
        return std::get<0>(zvm::detail::getCmdDistributorAndSinks(target, {}));
    };
    EXPECT_EQ(distributorOf(NcrID{}), host.distributor);
    EXPECT_EQ(distributorOf(std::shared_ptr<zvm::ZVM>(host.zvm)), host.distributor);
    EXPECT_EQ(distributorOf(NcrID{7}), nullptr);
    EXPECT_EQ(&iqm::Iqm::getInstance(NcrID{}), &host);
    EXPECT_THROW(iqm::Iqm::getInstance(NcrID{7}), std::runtime_error);
}

}  // namespace
