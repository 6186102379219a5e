#include <Poco/JSON/Object.h>

#include "RunningInterpreter.h"
#include "capabilities/capabilities.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "connector/json/write.h"
#include "fl/i18n/text.h"

namespace v1 = connector::interpreter::v1;

namespace {

using Arguments = std::vector<std::u16string>;
using Rows = std::vector<std::pair<std::u16string, std::string>>;

struct Call {
    std::u16string function;
    Arguments arguments;
    std::string answer;
    int nargout = 1;
};

class FunctionCallTest : public RunningInterpreter {
protected:
    void expectAnswers(const std::vector<Call>& calls) {
        for (const Call& row : calls) EXPECT_EQ(call(row.function, row.arguments, row.nargout), row.answer);
    }
    std::string resultOf(const std::u16string& code) {
        return call(u"result", {fl::i18n::to_ustring(connector::json::quoted(fl::i18n::to_string(code)))});
    }
};

TEST_F(FunctionCallTest, callsWhatANameStandsForAndAnswersWhatCannotBeCalledWithAFault) {
    eval(
        u"def pair(a, b): return b, a\nlen = lambda x: 'mine'\nimport xml\n"
        u"number = 5\ndef fail(): raise ValueError('no')\ndef one(): return 1");
    const std::string wrongCount = "ValueError: nargout must be an integer between 0 and 10000";
    const std::u16string deep = std::u16string(10'000, u'[') + std::u16string(10'000, u']');
    expectAnswers({
        {u"pair", {u"1", u"\"\u00e9\u6f22\""}, "[\"é漢\",1]", 2},
        {u"pair", {u"1", u"2"}, "[[2,1]]"},
        {u"pair", {u"1", u"2"}, "[]", 0},
        {u"len", {u"[]"}, "[\"mine\"]"},
        {u"numpy.linalg.det", {u"[[2, 0], [0, 3]]"}, "[6.0]"},
        {u"xml.sax.saxutils.escape", {u"\"a\""}, "[\"a\"]"},
        {u"missing", {}, "NameError: there is no function named 'missing'"},
        {u"number", {}, "TypeError: 'number' is not a function but an object of type int"},
        {u"fail", {}, "ValueError: no"},
        {u"one", {}, "ValueError: 'one' must return 2 results, but returned 1", 2},
        {u"one", {}, wrongCount, -1},
        {u"one", {}, wrongCount, 10'001},
        {u"one", {deep}, "RecursionError: the arguments, the call or its results are nested too deeply"},
        {u"one", {}, "[1]"},
    });
}

TEST_F(FunctionCallTest, writesEveryKindOfResultAsJson) {
    eval(
        u"import numpy, enum\n"
        u"class Level(enum.IntEnum): HIGH = 3\n"
        u"def result(code): return eval(code)\n"
        u"def roundTrips():\n"
        u"    bits = numpy.random.default_rng(1).integers(0, 2**64, 20000, 'u8').view('f8')\n"
        u"    return bits[numpy.isfinite(bits)]\n"
        u"def same(values): return values == roundTrips().tolist()");
    const Rows results = {
        {u"[None, True, 'a<\\n', b'x'[0], 2.0, 1e16, 1e-5, 0.1, -0.0, float('-inf'), 1+2j]",
         "[null,true,\"a\\u003c\\n\",120,2.0,1e+16,1e-05,0.1,-0.0,null,{\"re\":1.0,\"im\":2.0}]"},
        {u"{'a': (1, [2]), '': {}}", R"({"a":[1,[2]],"":{}})"},
        {u"[Level.HIGH, 2**63 - 1, -2**63, 2**70]",
         "[3,9223372036854775807,-9223372036854775808,1180591620717411303424]"},
        {u"'\\U0001f600 \\ud800'", "\"\xF0\x9F\x98\x80 \\ud800\""},
        {u"numpy.arange(6).reshape(2, 3).T[:, ::-1]", "[[3,0],[4,1],[5,2]]"},
        {u"[numpy.zeros((2, 0)), numpy.zeros((0, 2)), numpy.array(1.5)]", "[[[],[]],[],1.5]"},
        {u"numpy.array([1, numpy.nan, 1e300], '>f8')", "[1.0,null,1e+300]"},
        {u"[numpy.array([0.1], t) for t in ('f2', 'f4', 'f8', 'g')]",
         "[[0.0999755859375],[0.10000000149011612],[0.1],[0.1]]"},
        {u"[numpy.array([1], t) for t in ('?', 'i1', 'u1', 'c8')]",
         "[[true],[1],[1],[{\"re\":1.0,\"im\":0.0}]]"},
        {u"[numpy.array([2**64 - 1], 'u8'), numpy.int8(-1), numpy.bool_(1), numpy.float32(.5)]",
         "[[18446744073709551615],-1,true,0.5]"},
        {u"[numpy.array(['a', 'bc']), numpy.str_('d'), numpy.ma.array([1, 2], mask=[0, 1])]",
         R"([["a","bc"],"d",[1,null]])"},
    };
    for (const auto& [code, json] : results) EXPECT_EQ(resultOf(code), "[" + json + "]");
    const Rows faults = {
        {u"{1: 2}", "TypeError: the keys of a dictionary must be strings, not int"},
        {u"[object()]", "TypeError: a value of type object cannot be written as JSON"},
        {u"numpy.array([b'x'])",
         "TypeError: a value of type numpy.ndarray of dtype('S1') cannot be written as JSON"},
        {u"(l := []).append(l) or l",
         "RecursionError: the arguments, the call or its results are nested too deeply"},
    };
    for (const auto& [code, fault] : faults) EXPECT_EQ(resultOf(code), fault);
    const std::string numbers = call(u"roundTrips");
    EXPECT_EQ(call(u"same", {fl::i18n::to_ustring(numbers.substr(1, numbers.size() - 2))}), "[true]");
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
    expectAnswers({
        {u"array", {u"[1, -2]"}, R"([["ndarray","int64",[1,-2]]])"},
        {u"array", {u"[ [1, 2.5] , [null, -3e2] ]"}, R"([["ndarray","float64",[[1.0,2.5],[null,-300.0]]]])"},
        {u"array", {u"[[true], [false]]"}, R"([["ndarray","bool",[[true],[false]]]])"},
        {u"array", {u"[[], []]"}, R"([["ndarray","float64",[[],[]]]])"},
        {u"array", {u"[9223372036854775807]"}, R"([["ndarray","int64",[9223372036854775807]]])"},
        {u"array", {u"[9223372036854775808]"}, R"([["list",[9223372036854775808]]])"},
        {u"array", {u"[true, 1]"}, R"([["list",[true,1]]])"},
        {u"array", {u"[[1], [2, 3]]"}, R"([["list",[[1],[2,3]]]])"},
        {u"array", {u"[[], [[]]]"}, R"([["list",[[],[[]]]]])"},
        {u"some", {u"[1]", u"[0.5]"}, R"([["ndarray","float64",[0.5]]])"},
        {u"plain", {u"[1, 2]"}, R"([["list",[1,2]]])"},
        {u"unknown", {u"[1, 2]"}, R"([["list",[1,2]]])"},
        {u"change", {u"[1, 2]"}, "[[7,2]]"},
        {u"numpy.add", {u"[1, 2]", u"[0.5, 1]"}, "[[1.5,3.0]]"},
        {u"array",
         {u"[01]"},
         "ValueError: argument 1 must be JSON: Expecting ',' delimiter: line 1 column 3 (char 2)"},
        {u"array", {u"[1] 2"}, "ValueError: argument 1 must be JSON: Extra data: line 1 column 5 (char 4)"},
        {u"plain", {u"[NaN]"}, "ValueError: argument 1 must be JSON: NaN is not a JSON number"},
    });
}

TEST_F(FunctionCallTest, isMadeAsAPartOfASequence) {
    const auto json = connector::json::parse(R"({"messages":[{"type":"connector/v1/FEval",
        "message":{"uuid":"1","function":"abs","nargout":1,"arguments":[-2]}}]})");
    auto sequence = serializer_->read("connector/v1/Sequence", json.extract<Poco::JSON::Object::Ptr>());
    EXPECT_EQ(connector::json::written(*serializer_->write(*deliver(std::move(sequence)).get())),
              R"({"messages":[{"message":{"isError":false,"messageFaults":[],"results":"[2]","uuid":"1"},)"
              R"("type":"connector/v1/FEvalResponse"}],"uuid":""})");
}

TEST_F(FunctionCallTest, namesACapabilityThatTheClientLacks) {
    eval(u"import numora\ndef plot(x):\n    return [numora.require(x) for _ in '1'][0]");
    const auto identifierOf = [](const std::vector<connector::common::v1::Fault>& faults) {
        return faults.empty() || faults[0].conditions.empty() ? "" : faults[0].conditions[0].faultId;
    };
    auto context = std::make_shared<connector::common::ContextState>();
    const auto expectFault = [&](const std::string& clientType, const std::u16string& function,
                                 const std::string& identifier, const std::string& message) {
        context->set("clientType", clientType);
        auto request = std::make_unique<v1::FEval>("test");
        request->function = function;
        request->arguments = {u"\"figures\""};
        const auto answered = deliver(std::move(request), context).get();
        const auto& faults = dynamic_cast<const v1::FEvalResponse&>(*answered).faults;
        EXPECT_EQ(faults.empty() ? "" : faults[0].message, message);
        EXPECT_EQ(identifierOf(faults), identifier) << message;
    };
    const std::string missing = "NUMORA:services:MissingRequiredCapability";
    const std::string lacks = " lacks the capability 'figures', which is needed by: ";
    const std::string client = "MissingCapabilityError: The client" + lacks;
    expectFault("browser", u"plot", "", "");
    context->set("numoraCapabilities", capabilities::CapabilityList{"sound", "figures"});
    expectFault("browser", u"plot", "", "");
    context->set("numoraCapabilities", capabilities::CapabilityList{"sound"});
    expectFault("browser", u"plot", missing + "_ForProduct",
                "MissingCapabilityError: NUMORA Online" + lacks + "plot");
    expectFault("own", u"plot", missing + "_ForUnknownProduct", client + "plot");
    expectFault("", u"plot", missing, client + "plot");
    expectFault("", u"numora.require", missing,
                client + "Error: Unable to retrieve function name for MissingRequiredCapability");
    EXPECT_EQ(identifierOf(eval(u"plot('figures')", 0, 0, 0, context).faults), missing);
    EXPECT_EQ(call(u"numora.require", {u"1"}), "TypeError: capability must be a string, not int");
}

TEST_F(FunctionCallTest, givesUpAtItsTimeLimitWhileItWritesItsResult) {
    eval(
        u"import numpy\ndef huge(row): return [row] * 20_000\n"
        u"def rows(): return huge([0] * 40_000)\ndef arrays(): return huge(numpy.zeros(40_000))");
    for (const auto* function : {u"rows", u"arrays"})
        EXPECT_EQ(call(function, {}, 1, "", 300), "FEval timed out after 300 milliseconds");
    EXPECT_EQ(call(u"abs", {u"-1"}), "[1]");
}

}  // namespace
