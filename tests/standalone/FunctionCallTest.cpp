#include <future>
#include <optional>
#include <string>
#include <vector>

#include "RunningInterpreter.h"
#include "capabilities/CapabilityList.h"
#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/json/escape.h"
#include "fl/i18n/text.h"
#include "services/prompt/prompt.h"

namespace v1 = connector::interpreter::v1;

namespace {

class FunctionCallTest : public RunningInterpreter {
protected:
    /// The results, or the message of the first fault.
    std::string call(const std::u16string& function, std::vector<std::u16string> arguments = {},
                     int nargout = 1, const std::string& dequeMode = "", int timeoutMs = 0) {
        auto request = std::make_unique<v1::FEval>("test");
        request->function = function;
        request->arguments = std::move(arguments);
        request->nargout = nargout;
        request->dequeMode = dequeMode;
        request->timeoutMs = timeoutMs;
        const auto message = deliver(std::move(request)).get();
        const auto& response = dynamic_cast<const v1::FEvalResponse&>(*message);
        return response.faults.empty() ? fl::i18n::to_string(response.results)
                                       : response.faults.front().message;
    }
    /// Which error the only fault says it is, to programs.
    static std::string identifierOf(const connector::common::v1::Response& response) {
        if (response.faults.size() != 1 || response.faults[0].conditions.empty()) return "";
        return response.faults[0].conditions[0].faultId;
    }
    static std::u16string json(const std::u16string& text) {
        return fl::i18n::to_ustring(connector::json::quoted(fl::i18n::to_string(text)));
    }
};

TEST_F(FunctionCallTest, callsWhatANameStandsForWithJsonArguments) {
    eval(
        u"def pair(a, b): return b, a\ndef nothing(): pass\nclass Box:\n    @staticmethod\n    def get(): "
        u"return 7\n"
        u"len = lambda x: 'mine'\nimport xml");
    struct Case {
        std::u16string function;
        std::vector<std::u16string> arguments;
        int nargout;
        std::string results;
    };
    const std::vector<Case> cases = {
        {u"pair", {u"1", u"\"\u00e9\u6f22\""}, 2, "[\"é漢\",1]"},
        {u"pair", {u"1", u"2"}, 1, "[[2,1]]"},
        {u"pair", {u"1", u"2"}, 0, "[]"},
        {u"nothing", {}, 1, "[null]"},
        {u"Box.get", {}, 1, "[7]"},
        {u"len", {u"[]"}, 1, "[\"mine\"]"},
        {u"max", {u"[1, 5, 2]"}, 1, "[5]"},
        {u"os.path.join", {u"\"a\"", u"\"b\""}, 1, "[\"a/b\"]"},
        {u"numpy.linalg.det", {u"[[2, 0], [0, 3]]"}, 1, "[6.0]"},
        {u"numpy.reshape", {u"[1, 2, 3, 4]", u"[2, 2]"}, 1, "[[[1,2],[3,4]]]"},
        {u"complex", {u"1", u"2"}, 1, "[{\"re\":1.0,\"im\":2.0}]"},
        {u"float", {u"\"nan\""}, 1, "[null]"},
        {u"str.upper", {u"\"a\""}, 1, "[\"A\"]"},
        {u"xml.sax.saxutils.escape", {u"\"a\""}, 1, "[\"a\"]"},
    };
    for (const Case& row : cases) EXPECT_EQ(call(row.function, row.arguments, row.nargout), row.results);
}

TEST_F(FunctionCallTest, writesEveryKindOfResultAsJson) {
    eval(
        u"import numpy, enum\n"
        u"class Level(enum.IntEnum): HIGH = 3\n"
        u"def result(code): return eval(code)\n"
        u"def roundTrips():\n"
        u"    import json, random\n"
        u"    bits = numpy.random.default_rng(1).integers(0, 2**64, 20000, 'u8').view('f8')\n"
        u"    return bits[numpy.isfinite(bits)]\n"
        u"def same(values): return values == roundTrips().tolist()");
    struct Case {
        std::u16string code;
        std::string json;
    };
    const std::vector<Case> cases = {
        {u"[None, True, 'a<\\n', b'x'[0], 2.0, 1e16, 1e-5, 0.1, -0.0, float('-inf')]",
         "[null,true,\"a\\u003c\\n\",120,2.0,1e+16,1e-05,0.1,-0.0,null]"},
        {u"{'a': (1, [2]), '': {}}", R"({"a":[1,[2]],"":{}})"},
        {u"[Level.HIGH, 2**63 - 1, -2**63, 2**70]",
         "[3,9223372036854775807,-9223372036854775808,1180591620717411303424]"},
        {u"'\\U0001f600 \\ud800'", "\"\xF0\x9F\x98\x80 \\ud800\""},
        {u"numpy.arange(6).reshape(2, 3)", "[[0,1,2],[3,4,5]]"},
        {u"numpy.arange(6).reshape(2, 3).T[:, ::-1]", "[[3,0],[4,1],[5,2]]"},
        {u"[numpy.zeros((2, 0)), numpy.zeros((0, 2)), numpy.array(1.5)]", "[[[],[]],[],1.5]"},
        {u"numpy.array([1, numpy.nan, 1e300], '>f8')", "[1.0,null,1e+300]"},
        {u"[numpy.array([0.1], t) for t in ('f2', 'f4', 'f8', 'g')]",
         "[[0.0999755859375],[0.10000000149011612],[0.1],[0.1]]"},
        {u"[numpy.array([1], t) for t in ('?', 'i1', 'u1', 'u8', 'c8')]",
         "[[true],[1],[1],[1],[{\"re\":1.0,\"im\":0.0}]]"},
        {u"[numpy.array([2**64 - 1], 'u8'), numpy.int8(-1), numpy.bool_(1), numpy.float32(.5)]",
         "[[18446744073709551615],-1,true,0.5]"},
        {u"[numpy.array(['a', 'bc']), numpy.str_('d'), numpy.ma.array([1, 2], mask=[0, 1])]",
         R"([["a","bc"],"d",[1,null]])"},
    };
    for (const Case& row : cases) EXPECT_EQ(call(u"result", {json(row.code)}), "[" + row.json + "]");
    const std::string numbers = call(u"roundTrips");
    EXPECT_EQ(call(u"same", {fl::i18n::to_ustring(numbers.substr(1, numbers.size() - 2))}), "[true]");

    const std::vector<std::pair<std::u16string, std::string>> refused = {
        {u"{1: 2}", "TypeError: the keys of a dictionary must be strings, not int"},
        {u"[object()]", "TypeError: a value of type object cannot be written as JSON"},
        {u"numpy.array([b'x'])",
         "TypeError: a value of type numpy.ndarray of dtype('S1') cannot be written as JSON"},
        {u"(l := []).append(l) or l",
         "RecursionError: the arguments, the call or its results are nested too deep"},
    };
    for (const auto& [code, fault] : refused) EXPECT_EQ(call(u"result", {json(code)}), fault);
}

TEST_F(FunctionCallTest, givesArraysToFunctionsThatWantThem) {
    eval(
        u"from __future__ import annotations\n"
        u"import numpy, typing, numpy.typing\n"
        u"def told(a): return [type(a).__name__, *([str(a.dtype), a.tolist()] if hasattr(a, 'dtype') else "
        u"[a])]\n"
        u"def plain(a, b: int = 0): return told(a)\n"
        u"def array(a: numpy.ndarray): return told(a)\n"
        u"def some(*a: typing.Optional[numpy.typing.NDArray[numpy.float64]], **k): return told(a[1])\n"
        u"def unknown(a: Missing): return told(a)\n"
        u"def change(a: numpy.ndarray):\n    a[0] = 7\n    return a");
    struct Case {
        std::u16string function;
        std::vector<std::u16string> arguments;
        std::string results;
    };
    const std::vector<Case> cases = {
        {u"array", {u"[1, -2]"}, R"([["ndarray","int64",[1,-2]]])"},
        {u"array", {u"[ [1, 2.5] , [null, -3e2] ]"}, R"([["ndarray","float64",[[1.0,2.5],[null,-300.0]]]])"},
        {u"array", {u"[[true], [false]]"}, R"([["ndarray","bool",[[true],[false]]]])"},
        {u"array", {u"[[], []]"}, R"([["ndarray","float64",[[],[]]]])"},
        {u"array", {u"[9223372036854775807]"}, R"([["ndarray","int64",[9223372036854775807]]])"},
        {u"array", {u"[9223372036854775808]"}, R"([["list",[9223372036854775808]]])"},
        {u"array", {u"[true, 1]"}, R"([["list",[true,1]]])"},
        {u"array", {u"[[1], [2, 3]]"}, R"([["list",[[1],[2,3]]]])"},
        {u"array", {u"[1, [2]]"}, R"([["list",[1,[2]]]])"},
        {u"array", {u"[[], [[]]]"}, R"([["list",[[],[[]]]]])"},
        {u"array", {u"[\"1\"]"}, R"([["list",["1"]]])"},
        {u"array", {u"1"}, R"([["int",1]])"},
        {u"some", {u"[1]", u"[0.5]"}, R"([["ndarray","float64",[0.5]]])"},
        {u"plain", {u"[1, 2]"}, R"([["list",[1,2]]])"},
        {u"unknown", {u"[1, 2]"}, R"([["list",[1,2]]])"},
        {u"change", {u"[1, 2]"}, "[[7,2]]"},
        {u"numpy.add", {u"[1, 2]", u"[0.5, 1]"}, "[[1.5,3.0]]"},
        {u"array",
         {u"[1,]"},
         "ValueError: argument 1 must be JSON: Expecting value: line 1 column 4 (char 3)"},
        {u"array",
         {u"[01]"},
         "ValueError: argument 1 must be JSON: Expecting ',' delimiter: line 1 column 3 (char 2)"},
        {u"array", {u"[1] 2"}, "ValueError: argument 1 must be JSON: Extra data: line 1 column 5 (char 4)"},
        {u"plain", {u"[NaN]"}, "ValueError: argument 1 must be JSON: NaN is not a JSON number"},
    };
    for (const Case& row : cases) EXPECT_EQ(call(row.function, row.arguments), row.results);
}

TEST_F(FunctionCallTest, answersWhatCannotBeCalledWithAFault) {
    eval(u"number = 5\ndef fail(): raise ValueError('no')\ndef one(): return 1");
    std::u16string deep(10'000, u'[');
    const std::vector<std::pair<std::string, std::string>> cases = {
        {call(u"missing"), "NameError: there is no function named 'missing'"},
        {call(u"number"), "TypeError: 'number' is not a function but an object of type int"},
        {call(u"fail"), "ValueError: no"},
        {call(u"one", {}, 2), "ValueError: 'one' must return 2 results, but returned 1"},
        {call(u"object"), "TypeError: a value of type object cannot be written as JSON"},
        {call(u"one", {}, -1), "ValueError: nargout must be an integer between 0 and 10000"},
        {call(u"one", {}, 1'000'000), "ValueError: nargout must be an integer between 0 and 10000"},
        {call(u"len", {deep + std::u16string(10'000, u']')}),
         "RecursionError: the arguments, the call or its results are nested too deep"},
    };
    for (const auto& [answered, fault] : cases) EXPECT_EQ(answered, fault);
    EXPECT_EQ(call(u"one"), "[1]");
}

TEST_F(FunctionCallTest, answersWhileOtherCodeRuns) {
    for (const std::u16string& code :
         {std::u16string(endlessLoop), std::u16string(u"import time; time.sleep(600)")}) {
        eval(
            u"def shout():\n    print('aside')\n    return len(dir())\nstate = 'set'\ndef fail(): raise "
            u"ValueError('aside')");
        std::promise<EvalResponse> ended;
        inBackground([&] { ended.set_value(eval(code)); });
        ASSERT_TRUE(
            eventually([] { return services::prompt::getInputRequester() == nmutil::prompt::NO_PROMPT; }));
        EXPECT_EQ(call(u"shout", {}, 0, "ppe"), "[]");
        EXPECT_EQ(call(u"fail", {}, 0, "ppe"), "ValueError: aside");
        EXPECT_EQ(call(u"numora.is_complete", {u"\"x = (\""}, 1, "ppe"),
                  "[{\"status\":\"incomplete\",\"indent\":\"    \"}]");
        EXPECT_NE(call(u"numora.workspace", {}, 1, "ppe").find("\"state\""), std::string::npos);
        interrupt();
        const EvalResponse response = ended.get_future().get();
        EXPECT_TRUE(text(response).ends_with("KeyboardInterrupt\n"));
        EXPECT_EQ(text(response).find("aside"), std::string::npos);
        joinBackground();
    }
    EXPECT_EQ(textOf(u"1"), "1\n");
}

TEST_F(FunctionCallTest, namesACapabilityThatTheClientLacks) {
    using Capabilities = std::optional<capabilities::CapabilityList>;
    struct Row {
        std::string clientType;
        Capabilities has;
        std::string identifier;  // behind what all begin with
        std::string answer;
        std::u16string function = u"plot";
        std::u16string argument = u"1";
    };
    const std::string lacks = " lacks the capability 'figures', which is needed by: ";
    const std::string nameless = "Error: Unable to retrieve function name for MissingRequiredCapability";
    const std::vector<Row> rows = {
        {"browser", std::nullopt, "", "[1]"},
        {"browser", {{"sound", "figures"}}, "", "[1]"},
        {"browser", {{"sound"}}, "_ForProduct", "NUMORA Online" + lacks + "plot"},
        {"numora-cli", {{}}, "_ForProduct", "NUMORA" + lacks + "plot"},
        {"own", {{}}, "_ForUnknownProduct", "The client" + lacks + "plot"},
        {"", {{}}, "", "The client" + lacks + "plot"},
        {"", {{}}, "", "The client" + lacks + nameless, u"numora.require", u"\"figures\""},
        {"", {{}}, "", "TypeError: capability must be a string, not int", u"numora.require"},
    };
    eval(u"import numora\ndef plot(x):\n    return [numora.require('figures') or x for _ in '1'][0]");
    for (const Row& row : rows) {
        const bool isMissing = row.answer.find(lacks) != std::string::npos;
        const auto fault = (isMissing ? "MissingCapabilityError: " : "") + row.answer;
        const auto identifier =
            isMissing ? "NUMORA:services:MissingRequiredCapability" + row.identifier : std::string();
        auto context = std::make_shared<connector::common::ContextState>();
        if (row.has) context->set("numoraCapabilities", *row.has);
        context->set("clientType", row.clientType);
        auto request = std::make_unique<v1::FEval>("test");
        request->function = row.function;
        request->arguments = {row.argument};
        request->nargout = 1;
        const auto called = deliver(std::move(request), context).get();
        const auto& call = dynamic_cast<const v1::FEvalResponse&>(*called);
        EXPECT_EQ(call.faults.empty() ? fl::i18n::to_string(call.results) : call.faults.front().message,
                  fault);
        EXPECT_EQ(identifierOf(call), identifier) << row.answer;

        auto code = std::make_unique<v1::Eval>("test");
        code->mcode = row.function + u"(" + row.argument + u");";
        const auto evaluated = deliver(std::move(code), context).get();
        EXPECT_EQ(identifierOf(dynamic_cast<const v1::EvalResponse&>(*evaluated)), identifier) << row.answer;
    }
}

TEST_F(FunctionCallTest, tellsWhatWasEvaluated) {
    eval(u"x = 1");
    eval(u"1 / 0");
    EXPECT_EQ(call(u"numora.history", {u"2"}),
              "[[{\"number\":1,\"code\":\"x \\u003d 1\"},{\"number\":2,\"code\":\"1 / 0\"}]]");
}

TEST_F(FunctionCallTest, givesUpAfterItsTimeLimitAndGoesOn) {
    eval(std::u16string(u"def endless():\n    ") + endlessLoop);
    EXPECT_EQ(call(u"endless", {}, 1, "", 300), "FEval timed out after 300 milliseconds");
    eval(u"import numpy\ndef huge(row): return [row] * 20_000");
    eval(u"def rows(): return huge([0] * 40_000)\ndef arrays(): return huge(numpy.zeros(40_000))");
    EXPECT_EQ(call(u"rows", {}, 1, "", 300), "FEval timed out after 300 milliseconds");
    EXPECT_EQ(call(u"arrays", {}, 1, "", 300), "FEval timed out after 300 milliseconds");
    EXPECT_EQ(call(u"abs", {u"-1"}), "[1]");
}

}  // namespace
