#include <memory>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>

#include "connector/json/JsonSerializer.h"
#include "connector/json/parse.h"
#include "support/threads.h"

namespace connector::json {
namespace {

using Poco::JSON::Object;

struct Note : Message {
    std::string text;
};
struct LongNote : Note {};

std::unique_ptr<Message> readNote(const Object::Ptr& object) {
    auto note = std::make_unique<Note>();
    note->text = object->getValue<std::string>("text");
    return note;
}

Object::Ptr writeNote(const Message& message) {
    Object::Ptr object = new Object;
    object->set("text", dynamic_cast<const Note&>(message).text);
    return object;
}

template <class Operation>
void expectRefusal(Operation operation, const std::string& named) {
    EXPECT_THAT(operation, testing::ThrowsMessage<std::invalid_argument>(testing::HasSubstr(named)));
}

class JsonSerializerTest : public testing::Test {
protected:
    JsonSerializerTest() { serializer_.registerType("test/Note", typeid(Note), readNote, writeNote); }

    JsonSerializer serializer_;
};

TEST_F(JsonSerializerTest, refusesWhatIsNotRegisteredByName) {
    expectRefusal([this] { serializer_.read("test/Other", new Object); }, "test/Other");
    // The registration of a base says nothing about the classes derived from it.
    expectRefusal([this] { serializer_.write(LongNote()); }, "LongNote");
    expectRefusal([this] { serializer_.typeNameOf(LongNote()); }, "LongNote");
}

TEST_F(JsonSerializerTest, refusesASecondMeaningAndKeepsTheFirst) {
    expectRefusal([this] { serializer_.registerType("test/Note", typeid(LongNote), readNote, writeNote); },
                  "test/Note");
    expectRefusal([this] { serializer_.registerType("test/Memo", typeid(Note), readNote, writeNote); },
                  "test/Memo");
    EXPECT_EQ(serializer_.typeNameOf(Note()), "test/Note");
    expectRefusal([this] { serializer_.read("test/Memo", new Object); }, "test/Memo");
}

TEST_F(JsonSerializerTest, readersThatTakeNoTextsGetTrees) {
    const auto readDeep = [](const Object::Ptr& object) {
        auto note = std::make_unique<Note>();
        note->text = object->getArray("a")->getObject(0)->getObject("t")->getValue<std::string>("text");
        return note;
    };
    serializer_.registerType("test/Note", typeid(Note), readDeep, writeNote);
    const auto object = parse(R"({"a":[{"t":{"text":"deep"}}]})", deepestNesting, 3, "t");
    const auto message = serializer_.read("test/Note", object.extract<Object::Ptr>());
    EXPECT_EQ(dynamic_cast<Note&>(*message).text, "deep");
}

TEST_F(JsonSerializerTest, registersAgainWhileOthersRead) {
    const auto readLong = [](const Object::Ptr&) { return std::make_unique<LongNote>(); };
    Object::Ptr object = new Object;
    object->set("text", "x");
    onThreads(2, [&](int number) {
        for (int i = 0; i < 500; ++i) {
            if (number == 0) serializer_.registerType("test/Note", typeid(Note), readLong, writeNote);
            EXPECT_TRUE(serializer_.read("test/Note", object));
        }
    });
    EXPECT_TRUE(dynamic_cast<LongNote*>(serializer_.read("test/Note", object).get()));
}

}  // namespace
}  // namespace connector::json
