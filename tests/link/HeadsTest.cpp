#include <gtest/gtest.h>

#include "link/messages.h"

namespace links {
namespace {

TEST(HeadsTest, fieldsComeBackAndOtherBytesAreRefused) {
    const MessageHead head{.channel = "/eval/request",
                           .clientType = "console",
                           .hasCapabilities = true,
                           .capabilities = {"a", "", "b"},
                           .request = "r1",
                           .hasPrompt = true,
                           .prompt = 3,
                           .isPaced = true,
                           .arrivedNs = 0x1122334455667788,
                           .startedMs = 5,
                           .client = 6};
    const std::string bytes = head.encode();
    const MessageHead read = MessageHead::decode(bytes);
    EXPECT_EQ(MessageHead::fields(read), MessageHead::fields(head));
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_THROW(MessageHead::decode(bytes.substr(0, size)), BadFrame) << size;
    }
    EXPECT_THROW(MessageHead::decode(bytes + '\0'), BadFrame);
    EXPECT_THROW(PaceHead::decode("\2"), BadFrame);
    EXPECT_THROW(MessageHead::decode(std::string(64, '\xFF')), BadFrame);
    EXPECT_EQ(Hello::decode(Hello{.protocol = 2, .build = "next"}.encode() + "more").build, "next");
}

}  // namespace
}  // namespace links
