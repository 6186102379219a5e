#include <gmock/gmock.h>

#include "jupyter/wire/ZmqFrames.h"
#include "support/LogRecords.h"

namespace {

using namespace jupyter;
using jupyter::wire::Signature;
using jupyter::wire::ZmqFrames;
using testing::ElementsAre;
using Frames = std::vector<std::string>;

constexpr const char* scheme = "hmac-sha256";

// The first vector is that of RFC 4231, case 2, whose text is cut into the four parts.
TEST(SignatureTest, isTheCodeOfTheFourPartsAsTheyStand) {
    const Message message{
        .header = "what do", .parent = " ya want", .metadata = "", .content = " for nothing?"};
    EXPECT_EQ(Signature("Jefe", scheme).of(message),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
    EXPECT_EQ(Signature("", scheme).of(message), "");
    EXPECT_THROW(Signature("Jefe", "hmac-md5"), std::invalid_argument);
}

const Message sent{.channel = Channel::Control,
                   .route = {"a", "b"},
                   .header = R"({"msg_id" : "\ud800"})",
                   .content = R"({"x":NaN})",
                   .buffers = {"one", ""}};

TEST(ZmqFramesTest, takesAMessageOnceAndAsItIs) {
    ZmqFrames frames(Signature("key", scheme));
    const auto encoded = frames.encode(sent);
    const auto message = frames.decode(Channel::Control, encoded);
    ASSERT_TRUE(message);
    EXPECT_EQ(std::tie(message->channel, message->route, message->header, message->parent, message->metadata),
              std::tie(sent.channel, sent.route, sent.header, sent.parent, sent.metadata));
    EXPECT_EQ(std::tie(message->content, message->buffers), std::tie(sent.content, sent.buffers));
    EXPECT_FALSE(frames.decode(Channel::Control, encoded));
}

TEST(ZmqFramesTest, publishesUnderATopic) {
    const auto encoded = ZmqFrames(Signature("", scheme)).encode({.channel = Channel::Iopub});
    EXPECT_THAT(encoded, ElementsAre("kernel", "<IDS|MSG>", "", "{}", "{}", "{}", "{}"));
}

TEST(ZmqFramesTest, dropsGarbageWithABoundedNumberOfLines) {
    const LogRecords log;
    ZmqFrames frames(Signature("key", scheme));
    const auto good = frames.encode(sent);
    auto wrong = good, changed = good, shorter = good, unsigned_ = good, cut = good;
    wrong[3] = ZmqFrames(Signature("kez", scheme)).encode(sent)[3];
    changed[4] += ' ';
    shorter[3].pop_back();
    unsigned_[3].clear();
    cut.resize(7);
    const std::vector<Frames> garbage = {{},
                                         {""},
                                         {"<IDS|MSG>"},
                                         {"<IDS|MSG>", "<IDS|MSG>"},
                                         {"a", "\xff\xfe", std::string(100, '\0')},
                                         wrong,
                                         changed,
                                         shorter,
                                         unsigned_,
                                         cut};
    for (const auto& each : garbage) EXPECT_FALSE(frames.decode(Channel::Shell, each));
    EXPECT_EQ(log.lines().size(), garbage.size());
    for (int i = 0; i < 10'000; ++i) frames.decode(Channel::Shell, wrong);
    EXPECT_EQ(log.lines().size(), garbage.size() + 3);
    EXPECT_TRUE(frames.decode(Channel::Shell, good));
}

}  // namespace
