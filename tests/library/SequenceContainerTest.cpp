#include <memory>
#include <sstream>

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <gmock/gmock.h>

#include "connector/container/SequenceContainer.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/InterpreterJsonSerialization.h"
#include "support/thrownText.h"

namespace connector::container {
namespace {

using Poco::JSON::Object;

const std::string type = "connector/v1/Sequence";

class SequenceContainerTest : public testing::Test {
protected:
    SequenceContainerTest() { registerSequenceContainer(*serializer_); }

    std::unique_ptr<Message> read(const std::string& json) const {
        return serializer_->read(type, Poco::JSON::Parser().parse(json).extract<Object::Ptr>());
    }
    std::string write(const Message& message) const {
        std::ostringstream json;
        serializer_->write(message)->stringify(json);
        return json.str();
    }
    const std::shared_ptr<json::JsonSerializer> serializer_ = std::make_shared<json::JsonSerializer>();
    const interpreter::v1::InterpreterJsonSerialization interpreterMessages_{serializer_};
};

/// `levels` sequences inside each other.
std::string nestedJson(int levels) {
    if (levels == 1) return "{}";
    return R"({"messages":[{"type":"connector/v1/Sequence","message":)" + nestedJson(levels - 1) + "}]}";
}

TEST_F(SequenceContainerTest, isReadAndWrittenWithItsMessagesInOrder) {
    const std::string json =
        R"({"messages":[{"message":{"uuid":"b"},"type":"connector/v1/Interrupt"},)"
        R"({"message":{"messages":[{"message":{"uuid":"a"},"type":"connector/v1/Interrupt"}],"uuid":"n"},)"
        R"("type":"connector/v1/Sequence"}],"uuid":"s"})";
    EXPECT_EQ(write(*read(json)), json);
    EXPECT_EQ(write(*read("{}")), R"({"messages":[],"uuid":""})");
    EXPECT_THROW(serializer_->read(type, Object::Ptr()), Poco::NullPointerException);
}

TEST_F(SequenceContainerTest, isNestedNoDeeperThanTheLimit) {
    const std::string refusal = "Sequences must not be nested deeper than 8.";
    // Twice, as a failure must not use up levels of those that follow.
    for (int i = 0; i < 2; ++i) {
        SequenceContainer around;
        around.messages.push_back(read(nestedJson(maxSequenceDepth)));
        EXPECT_THAT(thrownText([&] { read(nestedJson(maxSequenceDepth + 1)); }),
                    testing::EndsWith("messages[0]: " + refusal));
        EXPECT_EQ(thrownText([&] { write(*around.messages[0]); }), "nothing thrown");
        EXPECT_THAT(thrownText([&] { write(around); }), testing::EndsWith(refusal));
    }
}

TEST_F(SequenceContainerTest, cannotBeWrittenWithAMessageThatHasNoForm) {
    SequenceContainer sequence;
    sequence.messages.push_back(std::make_unique<interpreter::v1::FEval>("f"));
    sequence.messages.push_back(nullptr);
    EXPECT_EQ(thrownText([&] { write(sequence); }), "messages[1]: There is no message.");
}

TEST_F(SequenceContainerTest, namesTheMessageThatCannotBeReadAndTheReason) {
    const std::pair<std::string, std::string> table[] = {
        {"null", "A message must be an object"},
        {R"({"message":{}})", "\"type\" must be a string."},
        {R"({"type":"connector/v1/Eval"})", "\"message\" must be an object."},
        {R"({"type":"x","message":{}})", "Unknown message type: x"},
        {R"({"type":"connector/v1/Eval","message":{"width":[]}})", "\"width\" must be a 32-bit integer."},
        {R"({"type":"connector/v1/Sequence","message":{"messages":{}}})", "\"messages\" must be an array."},
        {R"({"type":"connector/v1/Sequence","message":{"uuid":[]}})", "\"uuid\" must be a string."},
        {R"({"type":"connector/v1/Sequence","message":{"messages":[1]}})",
         "messages[0]: A message must be an object"}};
    for (const auto& [entry, failure] : table) {
        const std::string good = R"({"type":"connector/v1/Interrupt","message":{}})";
        const std::string json = R"({"messages":[)" + good + "," + entry + "]}";
        EXPECT_THAT(thrownText([&] { read(json); }), testing::StartsWith("messages[1]: " + failure));
    }
}

}  // namespace
}  // namespace connector::container
