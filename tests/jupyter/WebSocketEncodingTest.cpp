#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "jupyter/wire/WebSocket.h"

namespace {

using namespace std::string_literals;
using namespace jupyter::wire;
using jupyter::Channel;
using jupyter::Message;

struct Encoding {
    std::string name;
    WebSocketFrame (*encode)(const Message&);
    Message (*decode)(std::string_view, bool);
};

class WebSocketEncodingTest : public testing::TestWithParam<Encoding> {};

INSTANTIATE_TEST_SUITE_P(
    Both, WebSocketEncodingTest,
    testing::Values(Encoding{"Default", &encodeDefault, &decodeDefault},
                    Encoding{"V1", &encodeV1, [](std::string_view data, bool) { return decodeV1(data); }}),
    [](const auto& info) { return info.param.name; });

// Strict readers would refuse some of it, or write it in another way.
const std::vector<Message> messages = {
    {},
    {.channel = Channel::Iopub,
     .header = R"({ "msg_id" : "a\"}b", "msg_type":"stream", "session":"\ud800" })",
     .parent = R"({"x":[NaN,-Infinity,1.50e3,{"y":"]"}]})",
     .metadata = R"({"é":null})",
     .content = R"({"text":"\\"})"},
    {.channel = Channel::Stdin, .buffers = {"", "\0\xFF"s, std::string(300, 'x')}},
};

TEST_P(WebSocketEncodingTest, keepsEveryByteAndRefusesEveryCut) {
    for (const auto& message : messages) {
        const auto frame = GetParam().encode(message);
        EXPECT_EQ(frame.isText, GetParam().name == "Default" && message.buffers.empty());
        const auto decoded = GetParam().decode(frame.data, frame.isText);
        EXPECT_EQ(decoded.channel, message.channel);
        EXPECT_EQ(
            std::tie(decoded.header, decoded.parent, decoded.metadata, decoded.content, decoded.buffers),
            std::tie(message.header, message.parent, message.metadata, message.content, message.buffers));
        // Of the default encoding the last part ends with the frame, wherever that is.
        const bool endsAnywhere = GetParam().name == "Default" && !message.buffers.empty();
        const auto end = frame.data.size() - (endsAnywhere ? message.buffers.back().size() : 0);
        for (std::size_t size = 0; size < end; ++size) {
            EXPECT_THROW(GetParam().decode(frame.data.substr(0, size), frame.isText), std::invalid_argument)
                << size;
        }
    }
}

// Any byte of the offsets may be any other: nothing is read from beyond the frame.
TEST_P(WebSocketEncodingTest, believesNoOffset) {
    const auto frame = GetParam().encode(messages.back());
    for (std::size_t at = 0; at < 64; ++at) {
        for (const char lie : {'\x00', '\x01', '\x28', '\x7F', '\xFF'}) {
            std::string data = frame.data;
            data[at] = lie;
            try {
                const auto message = GetParam().decode(data, false);
                std::size_t size = 0;
                for (const auto& buffer : message.buffers) size += buffer.size();
                EXPECT_LE(size, data.size());
            } catch (const std::invalid_argument&) {
            }
        }
    }
}

TEST(WebSocketDefaultTest, hasTheTextThatFrontEndsExpect) {
    EXPECT_EQ(encodeDefault({.channel = Channel::Shell, .header = R"({"msg_id":"1","msg_type":"t"})"}).data,
              R"({"header":{"msg_id":"1","msg_type":"t"},"msg_id":"1","msg_type":"t","parent_header":{},)"
              R"("metadata":{},"content":{},"channel":"shell","buffers":[]})");
    EXPECT_EQ(encodeDefault({.buffers = {"B"}}).data.substr(0, 13), "\0\0\0\x02\0\0\0\x0C\0\0\0\x66{"s);
    EXPECT_EQ(encodeV1({}).data,
              "\x06\0\0\0\0\0\0\0\x38\0\0\0\0\0\0\0\x3D\0\0\0\0\0\0\0\x3F\0\0\0\0\0\0\0\x41\0\0\0\0\0\0\0"
              "\x43\0\0\0\0\0\0\0\x45\0\0\0\0\0\0\0shell{}{}{}{}"s);
}

TEST(WebSocketDefaultTest, refusesWhatIsNoMessage) {
    for (const char* text :
         {"", "[]", "7", "{}", R"({"header":[]})", R"({"header":{}}x)", R"({"header":{},})", R"({"header")",
          R"({"header":{},"channel":"hb"})", R"({"header":{},"content":"text"})", R"({"header":{]})"}) {
        EXPECT_THROW(decodeDefault(text, true), std::invalid_argument) << text;
    }
    EXPECT_THROW(decodeDefault("\0\0\0\x01\0\0\0\x08{\"header\":{\"\xFF\":1}}"s, false),
                 std::invalid_argument);
    // What may be left out, and what some clients write for nothing.
    EXPECT_EQ(decodeDefault(R"({"header":{},"parent_header":null})", true).channel, Channel::Shell);
}

}  // namespace
