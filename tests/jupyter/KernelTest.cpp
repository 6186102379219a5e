#include <sstream>

#include <gmock/gmock.h>

#include "KernelFakes.h"

namespace {

using namespace std::chrono_literals;
using jupyter::Channel;

const std::string success = R"({"isError":false,"messageFaults":[],"results":)";

/// Carries out the lines of a script that begin with "> ", and puts what comes of each behind it. The script
/// is what must come.
class KernelTest : public testing::Test {
protected:
    std::string play(const std::string& script, bool isShared = false) {
        jupyter::KernelOptions options{.isShared = isShared, .shutDown = [this](bool isRestart) {
                                           transcript_ += isRestart ? "ends, restarts\n" : "ends\n";
                                       }};
        jupyter::Kernel kernel(executor_, interpreter_, outlet_, options);
        kernel_ = &kernel;
        executor_.run();
        transcript_ = "\n";
        std::istringstream lines(script);
        for (std::string line; std::getline(lines, line);) {
            if (!line.starts_with("> ")) continue;
            transcript_ += line + '\n';
            std::istringstream words(line.substr(2));
            std::string command;
            words >> command;
            perform(command, words);
            executor_.run();
        }
        return transcript_;
    }

    void perform(const std::string& command, std::istringstream& words) {
        std::string first, rest;
        const auto split = [&] {
            words >> first;
            std::getline(words >> std::ws, rest);
        };
        if (command == "send") return send(words);
        if (command == "begin") return begin(words);
        split();
        if (command == "event") return event(interpreter_.running, first, rest);
        if (command == "late") return event("", first, rest);
        if (command == "other") return event("of another client", first, rest);
        if (command == "done") return event(interpreter_.running, "/eval/response/completion", success_);
        if (command == "fails") return fails(first);
        if (command == "dies") return dies(first);
        if (command == "refuse") return interpreter_.refusal(std::stoi(first), rest);
        if (command == "wait") return executor_.advance(std::chrono::milliseconds(std::stoi(first)));
        if (command == "state") return event("", "/connector/interpreter", first);
        ASSERT_EQ(command, "answer");
        const auto answered = std::move(interpreter_.answers.front());
        interpreter_.answers.pop_front();
        answered(std::stoi(first), first == "200" && !rest.empty() ? success + rest + '}' : rest);
    }

    /// Of a cell, where what comes of it is not of interest.
    void begin(std::istringstream& words) {
        const std::size_t size = transcript_.size();
        std::istringstream request("execute_request" + words.str().substr(words.str().find(' ')));
        send(request);
        transcript_.resize(size);
    }
    /// TYPE ID CONTENT, with @ROUTE, ^PARENT, #CHANNEL, %SESSION or =YEAR between them.
    void send(std::istringstream& words) {
        jupyter::Message message;
        message.route = {"A"};
        std::string type, id, word;
        words >> type >> id;
        message.header = R"({"msg_id":")" + id + R"(","msg_type":")" + type + R"(","session":"s"})";
        const auto session = message.header.size() - 3;
        while (words >> std::ws && words.peek() != '{' && words >> word) {
            if (word.front() == '@') message.route = {word.substr(1)};
            const std::string parent = word == "^?" ? outlet_.question : word.substr(1);
            if (word.front() == '^') message.parent = R"({"msg_id":")" + parent + R"("})";
            if (word.front() == '=') {
                message.header.insert(1, R"("date":")" + word.substr(1) + R"(-01-01T00:00:00.5Z",)");
            }
            if (word.front() == '%') message.header[session] = word[1];
            if (word == "#stdin") message.channel = Channel::Stdin;
            if (word == "#control") message.channel = Channel::Control;
        }
        if (words.peek() == '{') std::getline(words, message.content);
        kernel_->receive(std::move(message));
    }

    void event(const std::string& request, std::string channel, const std::string& data,
               const std::string& death = "") {
        if (!channel.starts_with('/')) {
            channel = (channel == "output" ? "/eval/response/" : "/eventmgr/0/") + channel;
        }
        interpreter_.received({.channel = channel, .data = data, .request = request, .death = death});
    }
    void fails(const std::string& name) {
        event(interpreter_.running, "error",
              R"({"name":")" + name + R"(","request":"r","traceback":["Traceback","E: no"],"value":"no"})");
        event(interpreter_.running, "/eval/response/completion", R"("Done: failure")");
    }
    void dies(const std::string& life) {
        const std::string death = R"({"life":)" + life + R"(,"sentence":"It has died."})";
        event(interpreter_.running, "/eval/response/error", R"("It has died.\n")", death);
        event(interpreter_.running, "/eval/response/completion", R"("Done: failure")", death);
    }

    const std::string success_ = R"("Done: success")";
    std::string transcript_;
    fake::FakeExecutor executor_;
    fake::FakeInterpreter interpreter_{transcript_};
    fake::FakeOutlet outlet_{transcript_};
    jupyter::Kernel* kernel_ = nullptr;
};

struct KernelCase {
    std::string name, script;
    bool isShared = false;
};
class KernelScriptTest : public KernelTest, public testing::WithParamInterface<KernelCase> {};

TEST_P(KernelScriptTest, answersInThisOrder) {
    EXPECT_EQ(play(GetParam().script, GetParam().isShared), GetParam().script);
}

INSTANTIATE_TEST_SUITE_P(Cells, KernelScriptTest,
                         testing::Values(KernelCase{"OutputAndResultComeBeforeTheReply", R"(
> send execute_request c1 @B {"code":"\u00e9","allow_stdin":true}
busy ^c1
execute_input {"code":"é","execution_count":1} ^c1
run display notebook cell=1 stdin: é
> event output "a\n\u003c"
stream {"name":"stdout","text":"a\n\u003c"} ^c1
> event display {"data":{"text/plain":"2, \"}"},"kind":"result","metadata":{"a":1,"numora":{"table":"t"}},"request":"r","transient":{}}
execute_result {"data":{"text/plain":"2, \"}"},"metadata":{"a":1},"execution_count":1} ^c1
> event display {"data":{},"kind":"update","metadata":{},"request":"r","transient":{"display_id":"d"}}
update_display_data {"data":{},"metadata":{},"transient":{"display_id":"d"}} ^c1
> event display {"data":{"text/plain":"\\ud83d \ud83d\ude00\udc00"},"kind":"display","metadata":{}}
display_data {"data":{"text/plain":"\\ud83d \ud83d\ude00\ufffd"},"metadata":{},"transient":{}} ^c1
> event figure {"number":1,"png":"aGk=","svg":null,"text":"F"}
display_data {"data":{"image/png":"aGk=","text/plain":"F"},"metadata":{},"transient":{}} ^c1
> event clear {"request":"r","wait":true}
clear_output {"wait":true} ^c1
> event display {"data":{},"kind":"display","metadata":{},"note":"a/b left out","request":"r","transient":{}}
stream {"name":"stderr","text":"[a/b left out]\n"} ^c1
display_data {"data":{},"metadata":{},"transient":{}} ^c1
> event payload {"payload":{"source":"page"},"request":"r"}
> event payload {"payload":{"source":"ask_exit"},"request":"r"}
> late output "thread"
stream {"name":"stdout","text":"thread"} ^c1
> event comm {"buffers":["aGk="],"comm_id":"i","data":{"x":1},"kind":"open","metadata":{},"target_name":"t"}
comm_open {"comm_id":"i","data":{"x":1},"target_name":"t"} +hi ^c1
> done
execute_reply {"status":"ok","execution_count":1,"user_expressions":{},"payload":[{"source":"page"},{"source":"ask_exit"}]} ^c1 @B
idle ^c1
> late output "late"
stream {"name":"stdout","text":"late"} ^c1
> other display {"data":{},"kind":"update","metadata":{},"request":"o","transient":{"display_id":"d"}}
update_display_data {"data":{},"metadata":{},"transient":{"display_id":"d"}} ^c1
> other comm {"buffers":[],"comm_id":"i","data":{},"kind":"msg","metadata":{},"target_name":"t"}
comm_msg {"comm_id":"i","data":{}} ^c1
> other display {"data":{},"kind":"display","metadata":{},"request":"o","transient":{}}
> other comm {"kind":"stream","name":"stdout","text":"of their handler"}
> other output "theirs"
> send execute_request c2 {"code":"2"}
busy ^c2
execute_reply {"status":"aborted"} ^c2 @A
idle ^c2
> wait 1000
ends
)"},
                                         KernelCase{"AnErrorAbortsTheCellsThatWaitAndNothingElse", R"(
> begin c1 {"code":"1"}
> send execute_request c2 @B {"code":"2"}
> send comm_msg m1 {"comm_id":"i","data":{"x":[1]}}
> send execute_request c3 {"code":"3","silent":true}
> send execute_request o1 %o {"code":"other","silent":true}
> fails ValueError
error {"ename":"ValueError","evalue":"no","traceback":["Traceback","E: no"]} ^c1
execute_reply {"status":"error","ename":"ValueError","evalue":"no","traceback":["Traceback","E: no"],"execution_count":1,"user_expressions":{},"payload":[]} ^c1 @A
idle ^c1
busy ^c2
execute_reply {"status":"aborted"} ^c2 @B
idle ^c2
busy ^c3
execute_reply {"status":"aborted"} ^c3 @A
idle ^c3
busy ^m1
call connector/v1/FEval {"function":"numora._notebook.comm","arguments":["msg","i","",{"x":[1]},{},[]],"nargout":1,"dequeMode":"default","uuid":"m1"}
> event comm {"kind":"stream","name":"stdout","text":"handled\n"}
stream {"name":"stdout","text":"handled\n"} ^m1
> answer 200 "[null]"
idle ^m1
busy ^o1
run display notebook cell=2.1: other
> event error {"caught":true,"name":"E","request":"r","traceback":[],"value":""}
error {"ename":"E","evalue":"","traceback":[]} ^o1
> done
execute_reply {"status":"ok","execution_count":1,"user_expressions":{},"payload":[]} ^o1 @A
idle ^o1
> send execute_request c6 =2000 {"code":"6"}
busy ^c6
execute_reply {"status":"aborted"} ^c6 @A
idle ^c6
> begin c4 =9999 {"code":"4","stop_on_error":false}
> send execute_request c5 {"code":"5","store_history":false}
> fails E
error {"ename":"E","evalue":"no","traceback":["Traceback","E: no"]} ^c4
execute_reply {"status":"error","ename":"E","evalue":"no","traceback":["Traceback","E: no"],"execution_count":2,"user_expressions":{},"payload":[]} ^c4 @A
idle ^c4
busy ^c5
execute_input {"code":"5","execution_count":3} ^c5
run display notebook cell=3.1: 5
> done
execute_reply {"status":"ok","execution_count":2,"user_expressions":{},"payload":[]} ^c5 @A
idle ^c5
> wait 250
> send execute_request c7 =2000 {"code":"7","silent":true}
busy ^c7
run display notebook cell=3.2: 7
)"},
                                         KernelCase{"ASilentCellShowsNoResultAndIsNotCounted", R"(
> send execute_request c1 {"code":"1","silent":true,"user_expressions":{"\"k":"x"}}
busy ^c1
run display notebook cell=1.1: 1
> event display {"data":{},"kind":"result","metadata":{},"request":"r","transient":{}}
> done
call connector/v1/FEval {"function":"numora._notebook.expressions","arguments":[{"\"k":"x"}],"nargout":1,"dequeMode":"ppe"}
> answer 429 too many
execute_reply {"status":"ok","execution_count":0,"user_expressions":{"\"k":{"status":"error","ename":"Refused","evalue":"too many","traceback":["Refused: too many"]}},"payload":[]} ^c1 @A
idle ^c1
)"},
                                         KernelCase{"WhatIsRefusedIsAnsweredWithTheReason", R"(
> begin c1 {"code":"1"}
> refuse 429 too many
error {"ename":"Refused","evalue":"too many","traceback":["Refused: too many"]} ^c1
execute_reply {"status":"error","ename":"Refused","evalue":"too many","traceback":["Refused: too many"],"execution_count":1,"user_expressions":{},"payload":[]} ^c1 @A
idle ^c1
> send execute_request c2 {"code":"1","silent":1}
busy ^c2
error {"ename":"Refused","evalue":"silent must be true or false","traceback":["Refused: silent must be true or false"]} ^c2
execute_reply {"status":"error","ename":"Refused","evalue":"silent must be true or false","traceback":["Refused: silent must be true or false"],"execution_count":1} ^c2 @A
idle ^c2
> send complete_request q1 {"code":[]}
busy ^q1
complete_reply {"status":"error","ename":"Refused","evalue":"code must be a string","traceback":["Refused: code must be a string"]} ^q1 @A
idle ^q1
> send create_subshell_request q3 #control {}
busy ^q3
idle ^q3
)"}),
                         [](const auto& info) { return info.param.name; });

INSTANTIATE_TEST_SUITE_P(Beside, KernelScriptTest,
                         testing::Values(KernelCase{"BusyIsShownAgainAfterAnAnswerBesideACell", R"(
> begin c1 {"code":"1"}
> send complete_request q1 @B {"code":"a.b","cursor_pos":3}
busy ^q1
call connector/v1/FEval {"function":"numora._notebook.complete","arguments":["a.b",3],"nargout":1,"dequeMode":"ppe","timeoutMs":10000}
> send is_complete_request q2 {"code":"if"}
busy ^q2
call connector/v1/FEval {"function":"numora._notebook.is_complete","arguments":["if"],"nargout":1,"dequeMode":"ppe","timeoutMs":10000}
> answer 200 "[{\"matches\":[\"b\"],\"cursor_start\":2}]"
complete_reply {"status":"ok","matches":["b"],"cursor_start":2} ^q1 @B
idle ^q1
busy ^c1
> answer 503 it stops
is_complete_reply {"status":"unknown","ename":"Refused","evalue":"it stops","traceback":["Refused: it stops"]} ^q2 @A
idle ^q2
busy ^c1
> send kernel_info_request q3 #control {}
busy ^q3
call connector/v1/FEval {"function":"sys.version.split","arguments":[],"nargout":1,"dequeMode":"ppe"}
> send comm_info_request q4 {"target_name":null}
busy ^q4
call connector/v1/FEval {"function":"numora._notebook.comm_info","arguments":[null],"nargout":1,"dequeMode":"ppe","timeoutMs":10000}
> wait 1000
kernel_info_reply {"status":"ok","protocol_version":"5.5","implementation":"numora","implementation_version":"0.1.0","language_info":{"name":"python","version":"3","mimetype":"text/x-python","file_extension":".py","pygments_lexer":"ipython3","codemirror_mode":{"name":"ipython","version":3},"nbconvert_exporter":"python"},"banner":"Numora 0.1.0, Python 3","debugger":false,"help_links":[{"text":"Python","url":"https://docs.python.org/3/"}],"supported_features":[]} ^q3 @A
idle ^q3
busy ^c1
)"},
                                         KernelCase{"AnInterruptIsAnsweredOnceItIsTaken", R"(
> begin c1 {"code":"1"}
> send interrupt_request i1 #control @B {}
busy ^i1
call connector/v1/Interrupt {}
> answer 200
interrupt_reply {"status":"ok"} ^i1 @B
idle ^i1
busy ^c1
> wait 500
stream {"name":"stderr","text":"The interrupted code is still running.\n"} ^c1
> send execute_request c2 {"code":"2"}
> event /eval/response/completion "Done: failure"
error {"ename":"KeyboardInterrupt","evalue":"The code was interrupted before it began.","traceback":["KeyboardInterrupt: The code was interrupted before it began."]} ^c1
execute_reply {"status":"error","ename":"KeyboardInterrupt","evalue":"The code was interrupted before it began.","traceback":["KeyboardInterrupt: The code was interrupted before it began."],"execution_count":1,"user_expressions":{},"payload":[]} ^c1 @A
idle ^c1
busy ^c2
execute_reply {"status":"aborted"} ^c2 @A
idle ^c2
> wait 500
)"},
                                         KernelCase{"AnAnswerIsTypedOnceAndFromWhoWasAsked", R"(
> send input_reply s0 #stdin {"value":"stale"}
> begin c1 @B {"code":"1","allow_stdin":true}
> event input {"number":7,"password":true,"prompt":"Who? ","request":"r"}
input_request {"prompt":"Who? ","password":true} ^c1 @B
> send input_reply s1 #stdin {"value":"another client"}
> send input_reply s2 #stdin @B ^c1 {"value":"of another question"}
> send input_reply s3 #stdin @B ^? {"value":1}
> send input_reply s4 #stdin @B ^? {"value":"Ada\u0003\r\nimport os"}
type 7: Ada  import os

> send input_reply s5 #stdin @B ^? {"value":"twice"}
> refuse 429 too many
stream {"name":"stderr","text":"The answer could not be typed: too many\n"} ^c1
> send input_reply s6 #stdin @B {"value":"again"}
type 7: again

> refuse 409 the prompt is gone
> event input {"number":8,"password":false,"prompt":"","request":"r"}
input_request {"prompt":"","password":false} ^c1 @B
> done
execute_reply {"status":"ok","execution_count":1,"user_expressions":{},"payload":[]} ^c1 @B
idle ^c1
> send input_reply s7 #stdin @B ^? {"value":"import os"}
)"}),
                         [](const auto& info) { return info.param.name; });

INSTANTIATE_TEST_SUITE_P(Lives, KernelScriptTest,
                         testing::Values(KernelCase{"ADeathIsToldOnceAndTheNextLifeIsStarted", R"(
> begin c1 {"code":"1","stop_on_error":false}
> send execute_request c2 {"code":"2"}
> dies 3
error {"ename":"InterpreterDied","evalue":"It has died.","traceback":["InterpreterDied: It has died."]} ^c1
execute_reply {"status":"error","ename":"InterpreterDied","evalue":"It has died.","traceback":["InterpreterDied: It has died."],"execution_count":1,"user_expressions":{},"payload":[]} ^c1 @A
idle ^c1
busy ^c2
execute_reply {"status":"aborted"} ^c2 @A
idle ^c2
restarting ^
call connector/v1/FEval {"function":"len","arguments":[[]],"nargout":1,"dequeMode":"ppe"}
> state {"id":"default","life":3,"state":"dead","death":{"life":3}}
> state {"id":"default","life":4,"state":"starting","death":null}
> begin c3 {"code":"3"}
> state {"id":"default","life":4,"state":"ready","death":null}
idle ^
busy ^c3
> answer 200 "[0]"
> done
execute_reply {"status":"ok","execution_count":2,"user_expressions":{},"payload":[]} ^c3 @A
idle ^c3
> state {"id":"default","life":5,"state":"starting","death":null}
restarting ^
> state {"id":"default","life":5,"state":"ready","death":null}
idle ^
stream {"name":"stderr","text":"The interpreter was started anew; its variables are lost.\n"} ^c3
> state {"id":"default","life":5,"state":"failed","death":{"life":5}}
dead ^
> send x_request x1 {}
busy ^x1
idle ^x1
dead ^
)"},
                                         KernelCase{"WhatFindsNoRoomDoesNotTellThatTheNextLifeIsDead", R"(
> state {"id":"default","life":3,"state":"dead","death":{"life":3}}
restarting ^
call connector/v1/FEval {"function":"len","arguments":[[]],"nargout":1,"dequeMode":"ppe"}
> answer 429 too many
> send x_request x1 {}
busy ^x1
idle ^x1
starting ^
> wait 1000
call connector/v1/FEval {"function":"len","arguments":[[]],"nargout":1,"dequeMode":"ppe"}
> answer 500 it cannot
dead ^
)"},
                                         KernelCase{"ARestartAbortsWhatWaitsAndCountsAnew", R"(
> begin c1 {"code":"1"}
> send execute_request c2 {"code":"2"}
> send shutdown_request d1 #control {"restart":true}
busy ^d1
busy ^c2
execute_reply {"status":"aborted"} ^c2 @A
idle ^c2
busy ^c1
restarting ^
call restart {}
> dies 1
error {"ename":"InterpreterDied","evalue":"It has died.","traceback":["InterpreterDied: It has died."]} ^c1
execute_reply {"status":"error","ename":"InterpreterDied","evalue":"It has died.","traceback":["InterpreterDied: It has died."],"execution_count":1,"user_expressions":{},"payload":[]} ^c1 @A
idle ^c1
starting ^
> state {"id":"default","life":1,"state":"dead","death":{"life":1}}
> state {"id":"default","life":2,"state":"starting","death":null}
> send execute_request c3 {"code":"3"}
> state {"id":"default","life":2,"state":"ready","death":null}
> answer 200
starting ^
idle ^
shutdown_reply {"status":"ok","restart":true} ^d1 @A
idle ^d1
busy ^c3
execute_input {"code":"3","execution_count":1} ^c3
run display notebook cell=1: 3
)"},
                                         KernelCase{"AKernelOfItsOwnEndsForItsOwnerToStartItAgain", R"(
> send shutdown_request d1 {"restart":true}
busy ^d1
restarting ^
call restart {}
> answer 501 it cannot
shutdown_reply {"status":"ok","restart":true} ^d1 @A
idle ^d1
ends, restarts
> send shutdown_request d2 {"restart":false}
busy ^d2
shutdown_reply {"status":"ok","restart":false} ^d2 @A
idle ^d2
ends
)"},
                                         KernelCase{
                                             "ASharedKernelIsLeftAloneAndClearedWhereItCannotBeRestarted", R"(
> send shutdown_request d1 {"restart":false}
busy ^d1
shutdown_reply {"status":"ok","restart":false} ^d1 @A
idle ^d1
> send shutdown_request d2 {"restart":true}
busy ^d2
restarting ^
call restart {}
> answer 501 it cannot
call connector/v1/Interrupt {}
call connector/v1/FEval {"function":"numora._notebook.reset","arguments":[0],"nargout":1,"dequeMode":"default","timeoutMs":10000}
> answer 200
> answer 200 "[null]"
starting ^
idle ^
shutdown_reply {"status":"ok","restart":true} ^d2 @A
idle ^d2
)",
                                             true}),
                         [](const auto& info) { return info.param.name; });

TEST_F(KernelTest, keepsHeadersAsTheyCameAndMendsWhatIsNoJson) {
    play("");
    jupyter::Kernel kernel(executor_, interpreter_, outlet_, {});
    const auto receive = [&](const std::string& header) {
        kernel.receive({.header = header, .content = R"({"code":"\ud800é","x":[NaN,-Infinity]})"});
        return outlet_.last.parent;
    };
    const std::string odd = R"({ "msg_id" : "1","msg_type":"x_request", "n":1.50,"date":"NaN \ud83d\ude00"})";
    EXPECT_EQ(receive(odd), odd);
    EXPECT_EQ(receive(R"({"msg_id":"2","msg_type":"x_request","n":NaN,"user":"\ud83d\\ud83d \udc00"})"),
              R"({"msg_id":"2","msg_type":"x_request","n":null,"user":"\ufffd\\ud83d \ufffd"})");
    transcript_.clear();
    for (const auto* header : {"", "[]", "{", R"({"msg_id":1,"msg_type":"x"})", R"({"msg_id":"x"})"})
        receive(header);
    EXPECT_EQ(transcript_, "");
    receive(R"({"msg_id":"3","msg_type":"execute_request"})");
    EXPECT_THAT(transcript_, testing::EndsWith("run display notebook cell=1: \uFFFDé\n"));
}

TEST_F(KernelTest, refusesWhatIsTooMuch) {
    std::string script;
    for (int i = 0; i < 1002; ++i)
        script += "> send execute_request c" + std::to_string(i) + R"( {"code":""})" + '\n';
    EXPECT_THAT(play(script), testing::EndsWith(R"("execution_count":1} ^c1001 @A
idle ^c1001
busy ^c0
)"));
    EXPECT_THAT(transcript_, testing::HasSubstr("at most 1000 requests"));
}

}  // namespace
