#include <limits>

#include "InterpreterFixture.h"
#include "capabilities/capabilities.h"
#include "connector/common/ContextState.h"
#include "nmutil/events.h"
#include "support/LogRecords.h"

namespace connector::interpreter::v1 {
namespace {

using cmddistributor::FEvalIIP;
using testing::AllOf, testing::StartsWith, testing::EndsWith;
using Outputs = std::vector<matrix::ArrayPtr>;

matrix::ArrayPtr jsonResult(std::u16string results, bool error = false, std::u16string faultMessage = {}) {
    std::vector<matrix::Field> fields;
    fields.push_back({"results", matrix::create(std::move(results))});
    fields.push_back({"error", matrix::createLogical(error)});
    fields.push_back({"faultMessage", matrix::create(std::move(faultMessage))});
    return matrix::createStruct(std::move(fields));
}

Outputs one(matrix::ArrayPtr array) {
    Outputs outputs;
    outputs.push_back(std::move(array));
    return outputs;
}

class FEvalTest : public InterpreterFixture {
protected:
    FEvalTest() {
        host_.distributor->onFEval = [](const FEvalIIP&) { return one(jsonResult(u"[1]")); };
    }
};

TEST_F(FEvalTest, mapsTheDequeModeOfTheRequestOrElseTheConfiguredOne) {
    const std::tuple<std::string, std::string, int> table[] = {
        {"ppe", "", 1},          {"pause", "", 2},   {"prompt", "idle", 3}, {"non_debug_prompt", "", 4},
        {"debug_prompt", "", 5}, {"idle", "", 6},    {"default", "ppe", 0}, {"Prompt", "", 0},
        {"", "idle", 6},         {"", "nonsense", 0}};
    host_.distributor->startWorker();
    for (const auto& [word, configured, value] : table) {
        if (!configured.empty()) configuration_->set("connector.interpreter.dequeMode", configured);
        auto message = functionCall();
        message->dequeMode = word;
        call(std::move(message));
        EXPECT_EQ(static_cast<int>(lastOptions().whenToDequeue()), value) << word;
    }
}

// Even when the code that the call interrupts is being captured through the active window.
TEST_F(FEvalTest, keepsOutputAndErrorsOfTheCallAwayFromTheCommandWindow) {
    const LogRecords log("connector::numora_output");
    context_->set("numoraCapabilities", capabilities::CapabilityList{"a"});
    host_.distributor->onFEval = [this](const FEvalIIP&) {
        host_.print(std::u16string(10'000, u'x') + u"out ");
        host_.print(u"err", true);
        EXPECT_EQ(connector::zvm_common::findContextState(lastOptions().contextHandle()), context_);
        lastOptions().printableErrorCallback()(nmutil::io::PrintableErrorEvent(
            u"shown", {nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:id", u"message"}));
        return one(jsonResult(u"[]"));
    };
    host_.distributor->startWorker();
    for (const std::string mode : {"ignore", "Ignore"}) {
        auto message = functionCall();
        message->outputMode = mode;
        EXPECT_EQ(faults(*call(std::move(message))), "");
        EXPECT_EQ(*lastOptions().capabilities(), capabilities::CapabilityList{"a"});
        EXPECT_EQ(connector::zvm_common::findContextState(lastOptions().contextHandle()), nullptr);
    }
    EXPECT_EQ(host_.window->text(), u"");
    // What is not ignored is logged, the end of it.
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_THAT(log.all(), AllOf(StartsWith("debug: id: f: xxx"), EndsWith("xout errshown\n")));
}

Outputs structWith(matrix::ArrayPtr results, matrix::ArrayPtr error) {
    auto array = jsonResult(u"");
    auto& values = std::get<mxArray::Fields>(array->content()).values;
    values[0] = std::move(results);
    values[1] = std::move(error);
    return one(std::move(array));
}
Outputs structs(std::size_t count) {
    mxArray::Fields fields{{"results"}, mxArray::Cells(count)};
    return one(matrix::ArrayPtr(new mxArray({1, count}, std::move(fields))));
}

TEST_F(FEvalTest, turnsWhatTheFunctionReturnedIntoTheResponse) {
    struct Row {
        std::function<Outputs()> returned;
        std::string fault;
        bool isError = false;
        std::u16string results = u"[]";
    };
    const Row table[] = {
        {[] { return one(jsonResult(u"[1,2]")); }, "", false, u"[1,2]"},
        {[] { return one(jsonResult(u"[]", true, u"no f\u00e9")); }, "no f\xC3\xA9", true},
        {[] { return one(jsonResult(u"[]", false, u"unused")); }, ""},
        {[] { return Outputs(); }, "feval returned null."},
        {[] { return one(matrix::create(u"[1]")); }, "mxArray is not a struct"},
        {[] { return structs(2); }, "expected one struct, found 2"},
        {[] { return one(matrix::createStruct({})); }, "mxArray does not have a field named results"},
        {[] { return structWith(matrix::createScalar(1), matrix::createLogical(false)); },
         "mxArray contained double but expected char"},
        {[] {
             return structWith(matrix::create(u"[1]"),
                               matrix::ArrayPtr(new mxArray({0, 0}, std::vector<bool>())));
         },
         "mxArray contained 0 logicals but expected one"}};
    host_.distributor->startWorker();
    for (const Row& row : table) {
        host_.distributor->onFEval = [&row](const FEvalIIP&) { return row.returned(); };
        const auto response = call();
        EXPECT_EQ(faults(*response), row.fault.empty() ? "" : "NUMORA.CodeError: " + row.fault + ";");
        EXPECT_EQ(response->isError, row.isError) << row.fault;
        EXPECT_EQ(response->results, row.results) << row.fault;
    }
}

TEST_F(FEvalTest, saysWhyNoFunctionCanBeCalled) {
    host_.zvm->available = false;
    EXPECT_EQ(faults(*call()), "NUMORA.CodeError: NUMORA not active.;");
    host_.zvm->available = true;
    provider_->stop();
    EXPECT_EQ(faults(*call()), "NUMORA.CodeError: NUMORA service not running.;");
    provider_ = std::make_shared<InterpreterServiceProviderImpl>(configuration_, nullptr);
    EXPECT_EQ(faults(*call()), "NUMORA.CodeError: NUMORA not available.;");
    EXPECT_TRUE(host_.distributor->enqueued().empty());
}

TEST_F(FEvalTest, aResultEndsTheWaitWhateverTheTimeLimit) {
    host_.distributor->startWorker();
    EXPECT_EQ(call(functionCall(std::numeric_limits<std::int32_t>::max()))->results, u"[1]");
}

// Each while a call and an evaluation wait in the queue and another call runs on.
TEST_F(FEvalTest, releasesPendingRequestsWhenTheServiceStopsOrTheInterpreterVanishes) {
    Gate function;
    host_.distributor->onFEval = [&, isFirst = true](const FEvalIIP&) mutable {
        if (std::exchange(isFirst, false)) function.pass();
        return one(jsonResult(u"[]"));
    };
    host_.distributor->startWorker();
    std::string running, waiting;
    std::jthread first([&] { running = faults(*call(functionCall(3'600'000))); });
    function.awaitEntry();
    std::jthread second([&] { waiting = faults(*call()); });
    std::jthread third([&] { eval(u"never runs"); });
    EXPECT_TRUE(eventually([&] { return host_.distributor->enqueued().size() >= 3; }));
    provider_->stop();
    first.join();
    second.join();
    third.join();
    const std::string stopped = "NUMORA.CodeError: NUMORA service not running.;";
    EXPECT_EQ(running, stopped);
    EXPECT_TRUE(waiting == "NUMORA.CodeError: Request was cancelled before starting.;" || waiting == stopped);
    provider_->start();
    std::jthread last([&] { waiting = faults(*call()); });
    EXPECT_TRUE(eventually([&] { return host_.distributor->enqueued().size() >= 4; }));
    host_.zvm->available = false;
    last.join();
    EXPECT_EQ(waiting, "NUMORA.CodeError: NUMORA not active.;");
    function.open();
    host_.distributor->stopWorker();
}

}  // namespace
}  // namespace connector::interpreter::v1
