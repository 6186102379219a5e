#include <mutex>

#include "RunningInterpreter.h"
#include "connector/common/RequestOrigin.h"
#include "fl/i18n/text.h"
#include "nmutil/events.h"
#include "standalone/TaggedEvent.h"

namespace {

using connector::common::ContextState;
using connector::common::RequestOrigin;
using foundation::json::Value;
using standalone::TaggedEvent;

/// Streams code to a client that listens to the interpreter's own events, and records what is sent.
class DisplayTest : public StreamingInterpreter {
protected:
    DisplayTest() {
        EXPECT_TRUE(session_->subscribe("/eval/response/**"));
        text_ = host_->messages()->subscribe("/eval/response/**", [this](const auto& message) {
            record(message.channel.substr(message.channel.rfind('/') + 1) + " " + message.data);
        });
    }

    void listenTo(const std::vector<std::u16string>& tags) {
        for (const auto& tag : tags) {
            connections_.emplace_back(nmutil::eventmgr::createLocalEventMgr()->subscribe<TaggedEvent>(
                [this, name = fl::i18n::to_string(tag)](const TaggedEvent& event) {
                    auto members = event.members;
                    if (name == "evaluation")
                        members.erase("code");  // what differs from run to run, or is long
                    if (members.contains("seconds")) members["seconds"] = nullptr;
                    record(name + " " + foundation::json::serialize(Value(members)));
                },
                tag));
        }
    }

    void publish(const std::string& text, bool isCapable = false) {
        const auto context = std::make_shared<ContextState>();
        if (isCapable) context->set("numoraCapabilities", capabilities::CapabilityList{"display"});
        RequestOrigin::set(*context, {.request = "r1"});
        const connector::common::CurrentContext current(context);
        host_->messages()->publish("/eval/request",
                                   connector::common::DataBuffer(foundation::json::serialize(Value(text))));
    }
    /// What is sent from the beginning of code to its end, a line for each message.
    std::string streamed(const std::string& code, bool isCapable = false) {
        publish(code, isCapable);
        return recordedUntil("completion");
    }
    std::string recordedUntil(const std::string& what) {
        EXPECT_TRUE(eventually([&] {
            const std::lock_guard lock(mutex_);
            return recorded_.find("\n" + what) != std::string::npos;
        })) << what;
        const std::lock_guard lock(mutex_);
        return std::exchange(recorded_, "\n");
    }

private:
    void record(std::string what) {
        for (const auto& [escaped, plain] :
             {std::pair("\\u003c", "<"), {"\\u003e", ">"}, {"\\u003d", "="}, {"\\u0027", "'"}}) {
            while (what.find(escaped) != std::string::npos) what.replace(what.find(escaped), 6, plain);
        }
        const std::lock_guard lock(mutex_);
        recorded_ += what + "\n";
    }

    std::mutex mutex_;
    std::string recorded_ = "\n";
    const std::shared_ptr<messages::ClientSession> session_ = host_->messages()->openSession();
    std::unique_ptr<connector::message_service::Subscription> text_;
    std::vector<foundation::msg_svc::eventmgr::ScopedConnection> connections_;
};

TEST_F(DisplayTest, keepsItsEventsInTheirPlaceAmongTextAndPrompts) {
    listenTo({u"clear", u"display", u"error", u"evaluation", u"input", u"progress", u"status"});
    publish(
        "import numora, os\nprint('a'); os.write(1, b'b'); display(1); print('c'); "
        "numora.clear_output(wait=True)\n"
        "for i in numora.progress([]): pass\nprint('d', input('e '))\nx.y");
    EXPECT_EQ(recordedUntil("iqminput \"INPUT"), R"(
evaluation {"clientType":"","isError":null,"number":1,"request":"r1","seconds":null,"state":"begun"}
status {"prompt":"NO_PROMPT","state":"busy"}
iqminput "NO_PROMPT"
output "a\nb1\n"
display {"data":{"text/plain":"1"},"kind":"display","metadata":{},"request":"r1","transient":{}}
output "c\n"
clear {"request":"r1","wait":true}
home "home"
progress {"done":0,"ended":false,"id":1,"label":"","seconds":null,"total":0}
progress {"done":0,"ended":true,"id":1,"label":"","seconds":null,"total":0}
output "e "
status {"echo":true,"number":1,"prompt":"INPUT_PROMPT","state":"input"}
input {"number":1,"password":false,"prompt":"e ","request":"r1"}
iqminput "INPUT_PROMPT"
)");
    publish("f\n");
    EXPECT_EQ(recordedUntil("completion \"Done: f"), R"(
completion "Done: success"
status {"prompt":"NO_PROMPT","state":"busy"}
iqminput "NO_PROMPT"
output "d f\n"
error "Traceback (most recent call last):\n  File \"<eval 1>\", line 5, in <module>\n    x.y\n    ^\nNameError: name 'x' is not defined\n"
error {"name":"NameError","request":"r1","traceback":["Traceback (most recent call last):","  File \"<eval 1>\", line 5, in <module>","    x.y","    ^","NameError: name 'x' is not defined"],"value":"name 'x' is not defined"}
evaluation {"clientType":"","isError":true,"number":1,"request":"r1","seconds":null,"state":"ended"}
status {"prompt":"BASE_PROMPT","state":"idle"}
iqminput "BASE_PROMPT"
completion "Done: failure"
)");
}

// A capable client gets values by events alone; for another the same code is printed, and nothing else is
// seen of the events that others listen to.
TEST_F(DisplayTest, showsValuesAsWhatTheirClassesSay) {
    listenTo({u"display"});
    struct Case {
        std::string code, capable, other;
    };
    const std::string event = "display {\"data\":{";
    for (const Case& row : {
             Case{"class V:\n    def _repr_html_(self): return 'h'\n    def __repr__(self): return 'v'\nV()",
                  event + R"("text/html":"h","text/plain":"v"},"kind":"result",)", R"(output "v\n")"},
             Case{"V._repr_latex_ = lambda self: 1 / 0\nV._repr_png_ = lambda self: (bytes(48), {'width': "
                  "1})\n"
                  "V._repr_mimebundle_ = lambda self: ({'text/html': 'm', 'a/j+json': [None]}, {'a/b': "
                  "1})\nV()",
                  R"(error "Traceback (most recent call last):\n  File \"<eval 3>\", line 1, in <lambda>\n)"
                  R"(    V._repr_latex_ = lambda self: 1 / 0\n                                  ~~^~~\n)"
                  R"(ZeroDivisionError: division by zero\n")"
                  "\n" +
                      event + R"("a/j+json":[null],"image/png":")" + std::string(64, 'A') +
                      R"(","text/html":"m","text/plain":"v"},"kind":"result",)"
                      R"("metadata":{"a/b":1,"image/png":{"width":1}})",
                  R"(output "v\n")"},
             Case{"V", event + R"("text/plain":"<class '__main__.V'>"},"kind":"result",)", "output "},
             Case{"class D(V):\n    def _ipython_display_(self): display('d', metadata={'m': 1})\nD()",
                  event + R"("text/plain":"'d'"},"kind":"display","metadata":{"m":1},)", R"(output "v\n")"},
             Case{"h = display(1, display_id='i'); h.update(2)",
                  event +
                      R"("text/plain":"1"},"kind":"display","metadata":{},"request":"r1",)"
                      R"("transient":{"display_id":"i"}})"
                      "\n" +
                      event + R"("text/plain":"2"},"kind":"update",)",
                  R"(output "1\n")"},
             Case{"display({'a/b': 'x' * (17 << 20), 'text/plain': 't'}, raw=True)",
                  R"(error "ValueError: an event must not carry more than 16 MiB of JSON\n)"
                  R"(Of a/b, text/plain only the text is shown.\n")"
                  "\n" +
                      event + R"("text/plain":"t"},"kind":"display",)",
                  R"(output "t\n")"},
             Case{"V._repr_pdf_ = lambda self: exec('raise KeyboardInterrupt')\nV()", "error \"Traceback",
                  R"(output "v\n")"},
         }) {
        for (const bool isCapable : {true, false}) {
            const std::string shown = streamed(row.code, isCapable);
            const std::string expected = isCapable ? row.capable : row.other;
            const auto first = shown.find('\n', shown.find("NO_PROMPT")) + 1;
            EXPECT_EQ(shown.substr(first, expected.size()), expected) << shown;
        }
    }
    // Both were kept, as Python does.
    EXPECT_EQ(textOf(u"type(_).__name__"), "'V'\n");
}

}  // namespace
