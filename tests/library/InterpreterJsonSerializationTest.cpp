#include <memory>
#include <sstream>
#include <string>

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
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
using Poco::JSON::Array;
using Poco::JSON::Object;
using testing::ElementsAre;

const std::string allTypes[] = {"Eval",          "EvalResponse", "FEval",
                                "FEvalResponse", "Interrupt",    "InterruptResponse"};

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
    for (const std::string& type : allTypes) {
        const auto message = read(type, R"({"uuid":"u-\u00e9","version":7,"unknown":{}})");
        EXPECT_EQ(serializer_->typeNameOf(*message), "connector/v1/" + type);
        EXPECT_EQ(serializer_->write(*message)->getValue<std::string>("uuid"), "u-\xC3\xA9") << type;
        EXPECT_EQ(dynamic_cast<common::v1::Message&>(*message).version(), common::v1::Version()) << type;
        EXPECT_THROW(read(type, Object::Ptr()), Poco::NullPointerException) << type;
    }
}

TEST_F(InterpreterJsonSerializationTest, writesEveryFieldOfRequests) {
    Eval eval("e");
    eval.mcode = u"x = '\u00E9\U0001F600'\n\xD83D";
    eval.width = 80;
    eval.height = -1;
    eval.timeoutMs = 2999;
    EXPECT_EQ(write(eval),
              "{\"height\":-1,\"mcode\":\"x = '\xC3\xA9\xF0\x9F\x98\x80'\\n\xEF\xBF\xBD\",\"timeout\":2,"
              "\"uuid\":\"e\",\"width\":80}");
    FEval feval("f");
    feval.function = u"plot";
    feval.nargout = 1;
    feval.priority = 2;
    feval.timeoutMs = 2999;
    feval.dequeMode = "ppe";
    feval.outputMode = "linenohook";
    feval.hotlinks = true;
    feval.arguments = {u"1", u"\"\u00E9\""};
    EXPECT_EQ(
        write(feval),
        "{\"arguments\":[\"1\",\"\\\"\xC3\xA9\\\"\"],\"dequeMode\":\"ppe\",\"function\":\"plot\","
        "\"hotlinks\":true,\"nargout\":1,\"outputMode\":\"linenohook\",\"priority\":2,\"timeoutMs\":2999,"
        "\"uuid\":\"f\"}");
    EXPECT_EQ(write(Interrupt("i")), R"({"uuid":"i"})");
}

TEST_F(InterpreterJsonSerializationTest, writesEveryFieldOfResponses) {
    EvalResponse eval("e");
    eval.responseStr = u"\u00E9";
    eval.promptType = 3;
    eval.clearCommandWindow = true;
    EXPECT_EQ(write(eval),
              "{\"clearCommandWindow\":true,\"isError\":false,\"messageFaults\":[],\"promptType\":3,"
              "\"responseStr\":\"\xC3\xA9\",\"uuid\":\"e\"}");
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

TEST_F(InterpreterJsonSerializationTest, readsEveryFieldOfAnEval) {
    const auto eval =
        readAs<Eval>("Eval", R"({"mcode":"\u00e9\ud83d\ude00","width":80,"height":"24","timeout":3})");
    EXPECT_EQ(eval->mcode, u"\u00E9\U0001F600");
    EXPECT_EQ(eval->width, 80);
    EXPECT_EQ(eval->height, 24);
    EXPECT_EQ(eval->timeoutMs, 3000);
    EXPECT_EQ(readAs<Eval>("Eval", R"({"timeout":2147483})")->timeoutMs, 2147483000);
}

TEST_F(InterpreterJsonSerializationTest, readsEveryFieldOfAnFEval) {
    const auto feval =
        readAs<FEval>("FEval", R"({"function":"f\u00e9","nargout":1,"priority":2,"timeoutMs":1500,
        "dequeMode":"ppe","outputMode":"linenohook","hotlinks":true})");
    EXPECT_EQ(feval->function, u"f\u00E9");
    EXPECT_EQ(feval->nargout, 1);
    EXPECT_EQ(feval->priority, 2);
    EXPECT_EQ(feval->timeoutMs, 1500);
    EXPECT_EQ(feval->dequeMode, "ppe");
    EXPECT_EQ(feval->outputMode, "linenohook");
    EXPECT_TRUE(feval->hotlinks);
    EXPECT_THAT(feval->arguments, ElementsAre());
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
}

TEST_F(InterpreterJsonSerializationTest, readsContainersThatAreHeldByValue) {
    Array inner;
    inner.add(std::string("a"));
    Object fault;
    fault.set("message", "text");
    Array faults;
    faults.add(fault);
    Object::Ptr object = new Object;
    object->set("arguments", inner).set("results", inner).set("messageFaults", faults);
    EXPECT_THAT(dynamic_cast<FEval&>(*read("FEval", object)).arguments, ElementsAre(u"\"a\""));
    const auto response = read("FEvalResponse", object);
    EXPECT_EQ(dynamic_cast<FEvalResponse&>(*response).results, u"[\"a\"]");
    EXPECT_EQ(dynamic_cast<FEvalResponse&>(*response).faults.at(0).message, "text");
}

TEST_F(InterpreterJsonSerializationTest, readsResultsFromAnArrayOnly) {
    const auto results = [this](const std::string& json) {
        return readAs<FEvalResponse>("FEvalResponse", json)->results;
    };
    EXPECT_EQ(results(R"({"results":[1, "\u00e9", null]})"), u"[1,\"\u00E9\",null]");
    for (const char* json : {"{}", R"({"results":"[1]"})", R"({"results":null})", R"({"results":{"a":1}})"}) {
        EXPECT_EQ(results(json), u"[]") << json;
    }
}

TEST_F(InterpreterJsonSerializationTest, readsResponsesWithTheirFaultsInOrder) {
    const auto response = readAs<EvalResponse>("EvalResponse", R"({"responseStr":"\u00e9","promptType":4,
        "clearCommandWindow":true,"isError":true,"messageFaults":[{"message":"m1","faultCode":"c1",
        "faultConditions":[{"faultId":"i","faultInfo":"t"}]},{"message":"m2","faultCode":"c2"}]})");
    EXPECT_EQ(response->responseStr, u"\u00E9");
    EXPECT_EQ(response->promptType, 4);
    EXPECT_TRUE(response->clearCommandWindow);
    EXPECT_TRUE(response->isError);
    ASSERT_EQ(response->faults.size(), 2U);
    EXPECT_EQ(response->faults[0].message, "m1");
    EXPECT_EQ(response->faults[0].faultCode, "c1");
    EXPECT_THAT(response->faults[0].conditions, ElementsAre());
    EXPECT_EQ(response->faults[1].faultCode, "c2");
    EXPECT_EQ(readAs<InterruptResponse>("InterruptResponse", R"({"messageFaults":[{}]})")->faults.size(), 1U);
}

struct FailureCase {
    std::string name, type, json, failure;
};

class InterpreterJsonFailureTest : public InterpreterJsonSerializationTest,
                                   public testing::WithParamInterface<FailureCase> {};

TEST_P(InterpreterJsonFailureTest, aKeyOfTheWrongKindFailsAsItsConversionFails) {
    try {
        read(GetParam().type, GetParam().json);
        FAIL() << "accepted";
    } catch (const Poco::Exception& failure) {
        EXPECT_EQ(failure.displayText(), GetParam().failure);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Messages, InterpreterJsonFailureTest,
    testing::Values(
        FailureCase{"TimeoutTooLarge", "Eval", R"({"timeout":2147484})",
                    R"(Out of range: Value too large. "timeout" must be an integer number of seconds.)"},
        FailureCase{"TimeoutTooSmall", "Eval", R"({"timeout":-2147484})",
                    R"(Out of range: Value too small. "timeout" must be an integer number of seconds.)"},
        FailureCase{"SecondsTooLarge", "Eval", R"({"timeout":1e300})",
                    R"(Out of range: Value too large. "timeout" must be an integer number of seconds.)"},
        FailureCase{"FractionOfASecond", "Eval", R"({"timeout":0.5})",
                    R"(Syntax error: "timeout" must be an integer number of seconds.)"},
        FailureCase{"IntegerTooLarge", "FEval", R"({"timeoutMs":2147483648})",
                    R"(Out of range: Value too large. "timeoutMs" must be a 32-bit integer.)"},
        FailureCase{"WordForInteger", "FEval", R"({"nargout":"one"})",
                    R"(Syntax error: "nargout" must be a 32-bit integer.)"},
        FailureCase{"ArrayForInteger", "EvalResponse", R"({"promptType":[]})",
                    R"(Bad cast exception: "promptType" must be a 32-bit integer.)"},
        FailureCase{"ArrayForText", "FEval", R"({"function":["f"]})",
                    R"(Bad cast exception: "function" must be a string.)"},
        FailureCase{"NullText", "Eval", R"({"mcode":null})", R"(Invalid access: "mcode" must be a string.)"},
        FailureCase{"ObjectForFlag", "FEval", R"({"hotlinks":{}})",
                    R"(Bad cast exception: "hotlinks" must be true or false.)"},
        FailureCase{"NullArguments", "FEval", R"({"arguments":null})",
                    R"(Invalid access: "arguments" must be an array.)"},
        FailureCase{"ArgumentsNotAnArray", "FEval", R"({"arguments":{"0":1}})",
                    R"(Bad cast exception: "arguments" must be an array.)"},
        FailureCase{"FaultNotAnObject", "InterruptResponse", R"({"messageFaults":[1]})",
                    R"(Bad cast exception: "messageFaults" must be an array of objects.)"}),
    [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace connector::interpreter::v1
