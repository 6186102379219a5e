#include <set>

#include <gmock/gmock.h>

#include "server/AbsentClientsSession.h"

namespace {

TEST(AbsentClientsTest, areStoodInForWithTheEventsThatWereAskedForLast) {
    messages::LocalMessageService service;
    const gateway::AbsentClientsSession absent(service);
    std::multiset<std::string> listened;
    const auto watch = service.watch(
        "/eventmgr/**", [&](const auto& event) { listened.insert(event.channel); },
        [&](const auto& event) { listened.erase(listened.find(event.channel)); });
    for (int i = 0; i <= 64; ++i) service.openSession()->subscribe("/eventmgr/0/tag" + std::to_string(i));
    service.openSession()->subscribe("/eventmgr/**");
    EXPECT_EQ(listened.size(), 64U);
    EXPECT_EQ(listened.count("/eventmgr/0/tag0"), 0U);
    EXPECT_EQ(listened.count("/eventmgr/0/tag64"), 1U);
}

}  // namespace
