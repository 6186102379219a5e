#include <future>
#include <string>
#include <vector>

#include "RunningInterpreter.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
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
};

TEST_F(FunctionCallTest, callsWhatANameStandsForWithJsonArguments) {
    eval(
        u"def pair(a, b): return b, a\ndef nothing(): pass\nclass Box:\n    @staticmethod\n    def get(): "
        u"return 7\n"
        u"len = lambda x: 'mine'");
    struct Case {
        std::u16string function;
        std::vector<std::u16string> arguments;
        int nargout;
        std::string results;
    };
    const std::vector<Case> cases = {
        {u"pair", {u"1", u"\"\u00e9\u6f22\""}, 2, "[\"\\u00e9\\u6f22\",1]"},
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
    };
    for (const Case& row : cases) EXPECT_EQ(call(row.function, row.arguments, row.nargout), row.results);
}

TEST_F(FunctionCallTest, answersWhatCannotBeCalledWithAFault) {
    eval(u"number = 5\ndef fail(): raise ValueError('no')\ndef one(): return 1");
    std::u16string deep(10'000, u'[');
    const std::vector<std::pair<std::string, std::string>> cases = {
        {call(u"missing"), "NameError: there is no function named 'missing'"},
        {call(u"number"), "TypeError: 'number' is no function but an object of type int"},
        {call(u"fail"), "ValueError: no"},
        {call(u"one", {}, 2), "ValueError: 'one' returned 1 results where 2 are wanted"},
        {call(u"object"), "TypeError: a result of type object has no JSON form"},
        {call(u"one", {}, -1), "ValueError: the number of results must be a whole number from 0 to 10000"},
        {call(u"one", {}, 1'000'000),
         "ValueError: the number of results must be a whole number from 0 to 10000"},
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

TEST_F(FunctionCallTest, tellsWhatWasEvaluated) {
    eval(u"x = 1");
    eval(u"1 / 0");
    EXPECT_EQ(call(u"numora.history", {u"2"}),
              "[[{\"number\":1,\"code\":\"x = 1\"},{\"number\":2,\"code\":\"1 / 0\"}]]");
}

TEST_F(FunctionCallTest, givesUpAfterItsTimeLimitAndGoesOn) {
    eval(std::u16string(u"def endless():\n    ") + endlessLoop);
    EXPECT_EQ(call(u"endless", {}, 1, "", 300), "FEval timed out after 300 milliseconds");
    EXPECT_EQ(call(u"abs", {u"-1"}), "[1]");
}

}  // namespace
