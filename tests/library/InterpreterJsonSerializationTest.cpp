#include <memory>
#include <sstream>
#include <string>

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <gmock/gmock.h>

#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/InterpreterJsonSerialization.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "connector/interpreter/v1/InterruptResponse.h"
#include "connector/json/parse.h"

namespace connector::interpreter::v1 {
namespace {

using connector::common::v1::Fault;
using Poco::JSON::Object;
using testing::ElementsAre;

class InterpreterJsonSerializationTest : public testing::Test {
protected:
    std::unique_ptr<connector::Message> read(const std::string& type, const Object::Ptr& object) const {
        return serializer_->read("connector/v1/" + type, object);
    }
    std::unique_ptr<connector::Message> read(const std::string& type, const std::string& json) const {
        return read(type, Poco::JSON::Parser().parse(json).extract<Object::Ptr>());
    }

    /// Fails the test with std::bad_cast when the message is of another class.
    template <class Msg>
    std::unique_ptr<Msg> readAs(const std::string& type, const std::string& json) const {
        return std::unique_ptr<Msg>(&dynamic_cast<Msg&>(*read(type, json).release()));
    }

    std::string write(const connector::Message& message) const {
        std::ostringstream json;
        serializer_->write(message)->stringify(json);
        return json.str();
    }

    const std::shared_ptr<connector::json::JsonSerializer> serializer_ =
        std::make_shared<connector::json::JsonSerializer>();
    const InterpreterJsonSerialization serialization_{serializer_};
};

TEST_F(InterpreterJsonSerializationTest, everyClassKeepsItsTypeNameAndUuid) {
    for (const std::string type :
         {"Eval", "EvalResponse", "FEval", "FEvalResponse", "Interrupt", "InterruptResponse"}) {
        const auto message = read(type, R"({"uuid":"u-\u00e9","version":7,"unknown":{}})");
        EXPECT_EQ(serializer_->typeNameOf(*message), "connector/v1/" + type);
        EXPECT_EQ(serializer_->write(*message)->getValue<std::string>("uuid"), "u-\xC3\xA9") << type;
        EXPECT_THROW(read(type, Object::Ptr()), Poco::NullPointerException) << type;
    }
}

// Written as they were read: names, types and order of every field.
TEST_F(InterpreterJsonSerializationTest, readsAndWritesEveryField) {
    const std::pair<std::string, std::string> table[] = {
        {"Eval", R"({"height":-1,"mcode":"x = 'é😀'\n","timeout":2147483,"uuid":"e","width":80})"},
        {"FEval",
         R"({"arguments":["1","\"é\""],"dequeMode":"ppe","function":"fé","hotlinks":true,"nargout":1,)"
         R"("outputMode":"linenohook","priority":2,"timeoutMs":2999,"uuid":"f"})"},
        {"Interrupt", R"({"uuid":"i"})"},
        {"EvalResponse", R"({"clearCommandWindow":true,"isError":true,"messageFaults":[],"promptType":3,)"
                         R"("responseStr":"é","uuid":"e"})"}};
    for (const auto& [type, json] : table) {
        const auto message = read(type, json);
        // An argument is JSON itself, so that texts are quoted once more.
        if (auto* const feval = dynamic_cast<FEval*>(message.get())) feval->arguments = {u"1", u"\"é\""};
        EXPECT_EQ(write(*message), json);
    }
    EXPECT_EQ(readAs<Eval>("Eval", R"({"height":"24"})")->height, 24);
    Eval eval("e");
    eval.mcode = u"\xD83D";
    eval.timeoutMs = 2999;
    EXPECT_EQ(write(eval),
              "{\"height\":0,\"mcode\":\"\xEF\xBF\xBD\",\"timeout\":2,\"uuid\":\"e\",\"width\":0}");
}

TEST_F(InterpreterJsonSerializationTest, writesResultsAndFaults) {
    FEvalResponse feval("f");
    feval.isError = true;
    feval.results = u"[\"a\",1]";
    EXPECT_EQ(write(feval), R"({"isError":true,"messageFaults":[],"results":"[\"a\",1]","uuid":"f"})");
    feval.results.clear();
    EXPECT_EQ(write(feval), R"({"isError":true,"messageFaults":[],"uuid":"f"})");
    InterruptResponse interrupt("i");
    interrupt.faults.emplace_back("Code", "Text");
    interrupt.faults.push_back(Fault("C", "T", {{"id", u"\u00E9"}, {"id2", u""}}));
    EXPECT_EQ(write(interrupt),
              "{\"messageFaults\":[{\"faultCode\":\"Code\",\"faultConditions\":[],\"message\":\"Text\"},"
              "{\"faultCode\":\"C\",\"faultConditions\":[{\"faultId\":\"id\",\"faultInfo\":\"\xC3\xA9\"},"
              "{\"faultId\":\"id2\",\"faultInfo\":\"\"}],\"message\":\"T\"}],\"uuid\":\"i\"}");
}

TEST_F(InterpreterJsonSerializationTest, outputModeDecidesAboutHotlinksThatAreNotMentioned) {
    EXPECT_FALSE(readAs<FEval>("FEval", "{}")->hotlinks);
    EXPECT_FALSE(readAs<FEval>("FEval", R"({"outputMode":""})")->hotlinks);
    EXPECT_FALSE(readAs<FEval>("FEval", R"({"outputMode":"linenohook"})")->hotlinks);
    EXPECT_TRUE(readAs<FEval>("FEval", R"({"outputMode":"other"})")->hotlinks);
    EXPECT_FALSE(readAs<FEval>("FEval", R"({"outputMode":"other","hotlinks":false})")->hotlinks);
}

TEST_F(InterpreterJsonSerializationTest, readsArgumentsOfAnyKindAsCompactJson) {
    const std::string json = R"({"arguments":[1, "a", {"b": [2]}, "q\"\\\n]", -2.5, 1e300,
        9223372036854775807, true, null, [ ], [[], {}, null, "x"], ""]})";
    // As a tree of values, and as the text that what comes from clients is left to be.
    for (const auto& object : {Poco::JSON::Parser().parse(json), json::parse(json, 4, 1, "arguments")}) {
        const auto feval = read("FEval", object.extract<Object::Ptr>());
        EXPECT_THAT(
            dynamic_cast<FEval&>(*feval).arguments,
            ElementsAre(u"1", u"\"a\"", u"{\"b\":[2]}", u"\"q\\\"\\\\\\n]\"", u"-2.5", u"1e+300",
                        u"9223372036854775807", u"true", u"null", u"[]", u"[[],{},null,\"x\"]", u"\"\""));
    }
}

// A tree takes a hundred times the room of its text, and anybody can add arguments to any message.
TEST_F(InterpreterJsonSerializationTest, makesNoTreeOfArgumentsThatAMessageDoesNotHave) {
    for (const char* type : {"Eval", "Interrupt", "EvalResponse"}) {
        const auto object = json::parse(R"({"arguments":[{}]})", 4, 1, "arguments").extract<Object::Ptr>();
        read(type, object);
        EXPECT_EQ(object->get("arguments").type(), typeid(json::Text)) << type;
    }
    const auto wrong = json::parse(R"({"arguments":{"0":1}})", 4, 1, "arguments").extract<Object::Ptr>();
    EXPECT_THROW(read("FEval", wrong), Poco::BadCastException);
}

TEST_F(InterpreterJsonSerializationTest, readsResultsFromAnArrayAndFaultsWithoutTheirConditions) {
    const auto response = readAs<FEvalResponse>(
        "FEvalResponse", R"({"results":[1, "\u00e9", null], "messageFaults":[{"message":"m",
        "faultCode":"c","faultConditions":[{"faultId":"i","faultInfo":"t"}]},{}]})");
    EXPECT_EQ(response->results, u"[1,\"\u00E9\",null]");
    EXPECT_EQ(response->faults.size(), 2U);
    EXPECT_EQ(response->faults[0].message, "m");
    EXPECT_EQ(response->faults[0].faultCode, "c");
    EXPECT_THAT(response->faults[0].conditions, ElementsAre());
    for (const char* json : {"{}", R"({"results":"[1]"})", R"({"results":{"a":1}})"}) {
        EXPECT_EQ(readAs<FEvalResponse>("FEvalResponse", json)->results, u"[]") << json;
    }
}

TEST_F(InterpreterJsonSerializationTest, namesTheKeyOfTheWrongKindAndWhatItMustBe) {
    const std::tuple<std::string, std::string, std::string> table[] = {
        {"Eval", R"({"timeout":2147484})",
         R"(Out of range: Value too large. "timeout" must be an integer number of seconds.)"},
        {"Eval", R"({"timeout":0.5})", R"(Syntax error: "timeout" must be an integer number of seconds.)"},
        {"EvalResponse", R"({"promptType":[]})",
         R"(Bad cast exception: "promptType" must be a 32-bit integer.)"},
        {"Eval", R"({"mcode":null})", R"(Invalid access: "mcode" must be a string.)"},
        {"FEval", R"({"hotlinks":{}})", R"(Bad cast exception: "hotlinks" must be true or false.)"},
        {"FEval", R"({"arguments":{"0":1}})", R"(Bad cast exception: "arguments" must be an array.)"},
        {"InterruptResponse", R"({"messageFaults":[1]})",
         R"(Bad cast exception: "messageFaults" must be an array of objects.)"}};
    for (const auto& [type, json, text] : table) {
        try {
            read(type, json);
            ADD_FAILURE() << json;
        } catch (const Poco::Exception& failure) {
            EXPECT_EQ(failure.displayText(), text);
        }
    }
}

}  // namespace
}  // namespace connector::interpreter::v1
