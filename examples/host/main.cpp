// A program with an interpreter in it: evaluates code, calls a function, shows what running code prints,
// interrupts it, and hears of an event. docs/embedding.md explains it.

#include <chrono>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "connector/common/RequestOrigin.h"
#include "connector/identifiers.h"
#include "connector/interpreter/Module.h"
#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "connector/wireWords.h"
#include "fl/i18n/text.h"
#include "standalone/StandaloneHost.h"

namespace {

using namespace connector::interpreter;
using connector::common::RequestOrigin;
namespace channel = connector::wire::channel;

/// The interpreter, and the module that answers requests to it, which is made after the host and ends before
/// it.
class Interpreter {
public:
    /// What `code` prints.  Blocks: until it has ended.  Throws: std::runtime_error, with the error that it
    /// ends with.
    std::string evaluate(const std::string& code) {
        auto request = std::make_unique<v1::Eval>(connector::randomUuid());
        request->mcode = fl::i18n::to_ustring(code);
        const auto answer = ask(std::move(request));
        const auto& response = dynamic_cast<const v1::EvalResponse&>(*answer);
        if (response.isError) throw std::runtime_error(fl::i18n::to_string(response.responseStr));
        return fl::i18n::to_string(response.responseStr);
    }

    /// Calls a function with arguments in JSON; gives `results` results as one JSON array.  Otherwise as
    /// `evaluate`.
    std::string call(const std::string& function, const std::vector<std::u16string>& arguments, int results) {
        auto request = std::make_unique<v1::FEval>(connector::randomUuid());
        request->function = fl::i18n::to_ustring(function);
        request->arguments = arguments;
        request->nargout = results;
        const auto answer = ask(std::move(request));
        const auto& response = dynamic_cast<const v1::FEvalResponse&>(*answer);
        if (!response.faults.empty()) throw std::runtime_error(response.faults.front().message);
        return fl::i18n::to_string(response.results);
    }

    /// Interrupts what runs.
    void interrupt() { ask(std::make_unique<v1::Interrupt>(connector::randomUuid())); }

    /// A client, as those are that come over a network: it has a queue of what is on the way to it.
    std::shared_ptr<messages::ClientSession> openClient() { return host_.messages()->openSession(); }

private:
    static standalone::HostOptions options() {
        standalone::HostOptions options;
        options.captureFileDescriptors = false;  // std::cout stays this program's
        return options;
    }

    std::unique_ptr<connector::Message> ask(std::unique_ptr<connector::Message> request) {
        return host_.framework()->deliver({}, std::move(request), nullptr).get();
    }

    standalone::StandaloneHost host_{options()};
    Module module_{{.framework = host_.framework(),
                    .configuration = host_.configuration(),
                    .serializer = std::make_shared<connector::json::JsonSerializer>(),
                    .zvm = host_.zvm(),
                    .messageServiceFactory = host_.messageServiceFactory(),
                    .shadowService = host_.shadowService(),
                    .requestGate = host_.requestGate(),
                    .requestTracker = host_.requestCounter()}};
};

/// Runs `code`, shows what comes of it as it comes, and interrupts it as soon as it has printed something.
void watch(Interpreter& interpreter, const std::string& code) {
    const auto client = interpreter.openClient();
    client->subscribe(channel::allEvalResponses);
    client->subscribe(std::string(channel::events) + "/0/measured");

    const auto context = std::make_shared<connector::common::ContextState>();
    RequestOrigin::set(*context, {.request = "watched", .pace = client->pace()});
    client->publish(channel::evalRequest, connector::json::quoted(code), context);

    bool isInterrupted = false;
    while (!client->isClosed()) {
        for (const auto& frame : client->take(std::size_t{1} << 20, std::chrono::seconds(10)).frames) {
            if (frame->channel() == channel::prompt) continue;
            if (frame->channel() == channel::output || frame->channel() == channel::error) {
                std::cout << connector::json::parse(frame->data()).extract<std::string>() << std::flush;
            } else {
                std::cout << frame->channel() << ": " << frame->data() << "\n";
            }
            if (frame->channel() == channel::completion) return;
            if (frame->channel() == channel::output && !std::exchange(isInterrupted, true))
                interpreter.interrupt();
        }
    }
}

}  // namespace

int main() {
    standalone::blockInterpreterSignals();  // before there are other threads
    try {
        Interpreter interpreter;
        std::cout << interpreter.evaluate("import numora, time\n6 * 7");
        std::cout << interpreter.call("divmod", {u"17", u"5"}, 2) << "\n";
        watch(interpreter,
              "try:\n"
              "    print('Measuring')\n"
              "    while True: time.sleep(0.1)\n"
              "except KeyboardInterrupt:\n"
              "    numora.post_event('measured', {'volts': 1.5})\n");
        std::cout << interpreter.evaluate("print('Still here')");
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "host: " << error.what() << "\n";
        return 1;
    }
}
