#include <chrono>
#include <set>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <gmock/gmock.h>

#include "interpreters/AbsentClientsSession.h"

namespace {

using namespace std::chrono_literals;
using Channels = std::vector<std::string>;

// Beside a client that holds a tag, others come to the channels of a row and leave them.
TEST(AbsentClientsTest, areStoodInForUntilTheirTimeIsOver) {
    const std::string tag = "/eventmgr/0/tag", held = "/eventmgr/0/held", output = "/eval/response/output";
    const std::string streams = "/eval/response/**";
    Channels many = {output}, kept = {streams, held, held, tag};
    for (int i = 0; i < 64; ++i) many.push_back("/eventmgr/0/junk" + std::to_string(i));
    for (int i = 0; i < 64; ++i) kept.push_back("/eventmgr/0/junk" + std::to_string(i));
    many.insert(many.end(), {"/eventmgr/0/junk0", tag});
    std::erase(kept, "/eventmgr/0/junk1");  // the one that was left first
    struct Row {
        std::chrono::milliseconds time;
        Channels left, listened;
    };
    for (const auto& row :
         {Row{1ms, {output, tag}, {held, held}},
          Row{1h, {output, tag, "/eventmgr/**"}, {streams, tag, held, held}}, Row{1h, many, kept}}) {
        const auto owned = std::make_shared<messages::LocalMessageService>();
        auto& service = *owned;
        boost::asio::io_context context;
        std::multiset<std::string> listened;
        const auto watch = service.watch(
            "/**", [&](const auto& event) { listened.insert(event.channel); },
            [&](const auto& event) { listened.erase(listened.find(event.channel)); });
        auto absent = std::make_shared<gateway::AbsentClientsSession>(context, owned, row.time);
        absent->start();
        const auto holder = service.openSession();
        holder->subscribe(held);
        for (const auto& channel : row.left) service.openSession({.clientType = "kept"})->subscribe(channel);
        context.poll();
        while (listened.size() > row.listened.size() && context.run_one_for(10s) > 0) continue;
        EXPECT_THAT(listened, testing::UnorderedElementsAreArray(row.listened));
        absent.reset();
        EXPECT_THAT(listened, testing::ElementsAre(held));
    }
}

}  // namespace
