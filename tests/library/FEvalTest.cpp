#include <future>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "capabilities/capabilities.h"
#include "cmddistributor/IIPResult.h"
#include "connector/common/ContextState.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/InterpreterServiceProviderImpl.h"
#include "nmutil/events.h"
#include "support/FakeHost.h"
#include "support/LogRecords.h"
#include "support/ManualConfiguration.h"
#include "v1/NumoraFevalJsonResult.h"

namespace connector::interpreter::v1 {
namespace {

using cmddistributor::FEvalIIP;
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

class FEvalTest : public testing::Test {
protected:
    FEvalTest() {
        provider_->start();
        host_.distributor->onFEval = [](const FEvalIIP&) { return one(jsonResult(u"[1]")); };
    }
    ~FEvalTest() override { host_.distributor->stopWorker(); }

    static std::unique_ptr<FEval> request(std::int32_t timeoutMs = 0) {
        auto message = std::make_unique<FEval>("id");
        message->function = u"f";
        message->dequeMode = "ppe";
        message->timeoutMs = timeoutMs;
        return message;
    }
    std::unique_ptr<FEvalResponse> call(std::unique_ptr<FEval> message = request()) {
        const common::CurrentContext current(context_);
        auto future = provider_->handle(std::move(message));
        EXPECT_TRUE(future.isReady());
        auto response = future.get();
        return std::unique_ptr<FEvalResponse>(dynamic_cast<FEvalResponse*>(response.release()));
    }
    static std::string faults(const connector::common::v1::Response& response) {
        std::string all;
        for (const auto& fault : response.faults) all += fault.faultCode + ": " + fault.message + ";";
        return all;
    }
    void interrupt() { provider_->handle(std::make_unique<Interrupt>("interrupt")).get(); }
    cmddistributor::RunOptions lastOptions() const { return host_.distributor->enqueued().back().options; }

    fake::FakeHost host_;
    std::shared_ptr<fake::ManualConfiguration> configuration_ = std::make_shared<fake::ManualConfiguration>();
    std::shared_ptr<InterpreterServiceProviderImpl> provider_ =
        std::make_shared<InterpreterServiceProviderImpl>(configuration_, host_.zvm);
    std::shared_ptr<common::ContextState> context_ = std::make_shared<common::ContextState>();
};

TEST_F(FEvalTest, passesTheCallOnAndTheResultBackWithoutCopyingTheirTexts) {
    const std::u16string longText(1'000'000, u'x');
    auto message = request();
    message->function = u"f\u00e9";
    message->nargout = -1;
    message->arguments = {longText, u"", u"{}"};
    const char16_t* const sent = message->arguments.front().data();
    const char16_t* returned = nullptr;
    host_.distributor->onFEval = [&](const FEvalIIP& iip) {
        EXPECT_EQ(std::get<std::string>(iip.function()), "connector.internal.fevalJSON");
        EXPECT_EQ(iip.nargout(), 1);
        const Outputs& arguments = iip.data()->arguments;
        EXPECT_EQ(matrix::get_ustring(*arguments.at(0)), u"f\u00e9");
        EXPECT_EQ(matrix::get_scalar(*arguments.at(1)), -1.0);
        EXPECT_EQ(matrix::get_ustring(*arguments.at(2)).data(), sent);
        EXPECT_EQ(matrix::get_ustring(*arguments.at(3)), u"");
        EXPECT_EQ(matrix::get_ustring(*arguments.at(4)), u"{}");
        EXPECT_EQ(arguments.size(), 5U);
        auto result = jsonResult(longText);
        returned = matrix::get_ustring(*mxGetField(*result, 0, "results")).data();
        return one(std::move(result));
    };
    host_.distributor->startWorker();
    const auto response = call(std::move(message));
    EXPECT_EQ(response->uuid(), "id");
    EXPECT_EQ(response->results.data(), returned);
    EXPECT_EQ(response->results.size(), longText.size());
    EXPECT_FALSE(response->isError);
    EXPECT_EQ(faults(*response), "");
}

TEST_F(FEvalTest, mapsTheDequeModeOfTheRequestOrElseTheConfiguredOne) {
    struct Row {
        std::string word, configured;
        int value;
    };
    const std::vector<Row> table = {
        {"ppe", "", 1},          {"pause", "", 2}, {"prompt", "idle", 3}, {"non_debug_prompt", "", 4},
        {"debug_prompt", "", 5}, {"idle", "", 6},  {"default", "ppe", 0}, {"Prompt", "", 0},
        {"ppe ", "", 0},         {"", "idle", 6},  {"", "nonsense", 0},
    };
    host_.distributor->startWorker();
    for (const Row& row : table) {
        if (!row.configured.empty()) configuration_->set("connector.interpreter.dequeMode", row.configured);
        auto message = request();
        message->dequeMode = row.word;
        call(std::move(message));
        EXPECT_EQ(static_cast<int>(lastOptions().whenToDequeue()), row.value) << row.word;
    }
}

// Even when the code that the call interrupts is being captured through the active window.
TEST_F(FEvalTest, keepsOutputAndErrorsOfTheCallAwayFromTheCommandWindow) {
    context_->set("numoraCapabilities", capabilities::CapabilityList{"a"});
    host_.distributor->onFEval = [this](const FEvalIIP&) {
        host_.print(u"printed");
        host_.print(u"warned", true);
        EXPECT_EQ(connector::zvm_common::findContextState(lastOptions().contextHandle()), context_);
        lastOptions().printableErrorCallback()(nmutil::io::PrintableErrorEvent(
            u"shown", {nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:id", u"message"}));
        return one(jsonResult(u"[]"));
    };
    host_.distributor->startWorker();
    for (const std::string mode : {"", "ignore", "Ignore"}) {
        auto message = request();
        message->outputMode = mode;
        EXPECT_EQ(faults(*call(std::move(message))), "");
        EXPECT_EQ(*lastOptions().capabilities(), capabilities::CapabilityList{"a"});
        EXPECT_EQ(connector::zvm_common::findContextState(lastOptions().contextHandle()), nullptr);
    }
    EXPECT_EQ(host_.window->text(), u"");
}

TEST_F(FEvalTest, logsTheEndOfTheOutputUnlessItIsIgnored) {
    const LogRecords log("connector::numora_output");
    host_.distributor->onFEval = [this](const FEvalIIP&) {
        host_.print(std::u16string(10'000, u'x') + u"out ");
        host_.print(u"err", true);
        return one(jsonResult(u"[]"));
    };
    host_.distributor->startWorker();
    auto ignored = request();
    ignored->outputMode = "ignore";
    call(std::move(ignored));
    EXPECT_EQ(log.all(), "");
    call();
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_TRUE(lines[0].starts_with("debug: id: f: xxx")) << lines[0];
    EXPECT_TRUE(lines[0].ends_with("xout err")) << lines[0];
}

struct ReturnCase {
    std::string name;
    Outputs (*returned)();
    std::string faults;
    bool isError = false;
    std::u16string results = u"[]";
};
class FEvalReturnTest : public FEvalTest, public testing::WithParamInterface<ReturnCase> {};

TEST_P(FEvalReturnTest, turnsWhatTheFunctionReturnedIntoTheResponse) {
    host_.distributor->onFEval = [](const FEvalIIP&) { return GetParam().returned(); };
    host_.distributor->startWorker();
    const auto response = call();
    EXPECT_EQ(faults(*response), GetParam().faults);
    EXPECT_EQ(response->isError, GetParam().isError);
    EXPECT_EQ(response->results, GetParam().results);
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
[[noreturn]] void fail(nmutil::cmddistributor::inExecutionStatus status) {
    throw cmddistributor::RuntimeException(status, "NUMORA:id", u"reason");
}

INSTANTIATE_TEST_SUITE_P(
    Results, FEvalReturnTest,
    testing::Values(
        ReturnCase{"Results", [] { return one(jsonResult(u"[1,2]")); }, "", false, u"[1,2]"},
        ReturnCase{"ErrorFlag", [] { return one(jsonResult(u"[]", true, u"no f\u00e9")); },
                   "NUMORA.CodeError: no f\xC3\xA9;", true},
        ReturnCase{"MessageWithoutTheFlag", [] { return one(jsonResult(u"[]", false, u"unused")); }, ""},
        ReturnCase{"NoOutput", [] { return Outputs(); }, "NUMORA.CodeError: feval returned null.;"},
        ReturnCase{"NullOutput", [] { return one(nullptr); }, "NUMORA.CodeError: feval returned null.;"},
        ReturnCase{"NoStruct", [] { return one(matrix::create(u"[1]")); },
                   "NUMORA.CodeError: mxArray is not a struct;"},
        ReturnCase{"NoElement", [] { return structs(0); }, "NUMORA.CodeError: expected one struct, found 0;"},
        ReturnCase{"TwoElements", [] { return structs(2); },
                   "NUMORA.CodeError: expected one struct, found 2;"},
        ReturnCase{"MissingField", [] { return one(matrix::createStruct({})); },
                   "NUMORA.CodeError: mxArray does not have a field named results;"},
        ReturnCase{"ResultsOfAnotherClass",
                   [] { return structWith(matrix::createScalar(1), matrix::createLogical(false)); },
                   "NUMORA.CodeError: mxArray contained double but expected char;"},
        ReturnCase{"FlagOfAnotherClass",
                   [] {
                       return structWith(matrix::create(u"[1]"), matrix::detail::do_create_cell({1, 1}));
                   },
                   "NUMORA.CodeError: mxArray contained cell but expected logical;"},
        ReturnCase{"EmptyFlag",
                   [] {
                       return structWith(matrix::create(u"[1]"),
                                         matrix::ArrayPtr(new mxArray({0, 0}, std::vector<bool>())));
                   },
                   "NUMORA.CodeError: mxArray contained 0 logicals but expected one;"},
        ReturnCase{"HostFailure", []() -> Outputs { fail(nmutil::cmddistributor::EXECUTION_ERROR); },
                   "NUMORA.CodeError: Error while executing eval request.;"},
        ReturnCase{"HostCancelled", []() -> Outputs { fail(nmutil::cmddistributor::EXECUTION_CANCELLED); },
                   "NUMORA.CodeError: Request was cancelled before starting.;"}),
    [](const auto& info) { return info.param.name; });

TEST_F(FEvalTest, givesUpAResultThatIsTakenTwice) {
    const auto array = jsonResult(u"[1]", true, u"m");
    NumoraFevalJsonResult result(*array);
    EXPECT_EQ(result.takeResults(), u"[1]");
    try {
        result.takeResults();
        ADD_FAILURE();
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "Cannot use FEvalResult results after move.");
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

TEST_F(FEvalTest, runsARequestThatWaitedSinceBeforeAnInterrupt) {
    host_.distributor->startWorker();
    context_->set("requestStartTime", std::uint64_t{1});
    interrupt();
    EXPECT_EQ(faults(*call()), "");
    EXPECT_FALSE(context_->has("requestDropped"));
}

TEST_F(FEvalTest, interruptsAFunctionThatReachesItsTimeLimit) {
    std::promise<void> interrupted;
    host_.zvm->onInterrupt = [&] { interrupted.set_value(); };
    host_.distributor->onFEval = [&](const FEvalIIP&) {
        interrupted.get_future().wait();
        return one(jsonResult(u"[\"late\"]"));
    };
    host_.distributor->startWorker();
    const auto response = call(request(20));
    EXPECT_TRUE(response->isError);
    EXPECT_EQ(faults(*response), "Request.Timeout: FEval timed out after 20 milliseconds;");
    EXPECT_EQ(response->results, u"[]");
    EXPECT_EQ(host_.zvm->interruptedRequests(), std::vector{host_.distributor->enqueued().at(0).id});
    EXPECT_EQ(host_.zvm->interrupts, 0);
}

TEST_F(FEvalTest, takesACallThatTimesOutBeforeItBeginsOutOfTheQueue) {
    EXPECT_EQ(faults(*call(request(20))), "Request.Timeout: FEval timed out after 20 milliseconds;");
    EXPECT_FALSE(host_.distributor->runNext());
}

TEST_F(FEvalTest, aResultEndsTheWaitWhateverTheTimeLimit) {
    host_.distributor->startWorker();
    EXPECT_EQ(call(request(std::numeric_limits<std::int32_t>::max()))->results, u"[1]");
}

// Each while two calls wait in the queue and a third one runs on.
TEST_F(FEvalTest, releasesPendingCalls) {
    enum class By { Interrupt, Stop, VanishedInterpreter };
    for (const By by : {By::Interrupt, By::Stop, By::VanishedInterpreter}) {
        std::promise<void> hasBegun;
        std::promise<void> mayEnd;
        const std::size_t before = host_.distributor->enqueued().size();
        host_.distributor->onFEval = [&](const FEvalIIP&) {
            hasBegun.set_value();
            mayEnd.get_future().wait();
            return one(jsonResult(u"[]"));
        };
        host_.distributor->startWorker();
        std::vector<std::unique_ptr<FEvalResponse>> responses(3);
        std::vector<std::thread> clients;
        clients.emplace_back([&] { responses[0] = call(request(by == By::Stop ? 3'600'000 : 0)); });
        hasBegun.get_future().wait();
        for (const std::size_t i : {1U, 2U}) clients.emplace_back([&, i] { responses[i] = call(); });
        while (host_.distributor->enqueued().size() < before + 3) std::this_thread::yield();
        if (by == By::Interrupt) interrupt();
        if (by == By::Stop) provider_->stop();
        if (by == By::VanishedInterpreter) host_.zvm->available = false;
        for (auto& client : clients) client.join();
        const std::string running[] = {"Error while executing eval request.", "NUMORA service not running.",
                                       "NUMORA not active."};
        EXPECT_EQ(faults(*responses[0]), "NUMORA.CodeError: " + running[static_cast<int>(by)] + ";");
        for (const std::size_t i : {1U, 2U}) {
            EXPECT_TRUE(faults(*responses[i]) ==
                            "NUMORA.CodeError: Request was cancelled before starting.;" ||
                        (by != By::Interrupt && faults(*responses[i]) == faults(*responses[0])))
                << faults(*responses[i]);
        }
        mayEnd.set_value();
        host_.distributor->stopWorker();
        provider_->start();
        host_.zvm->available = true;
    }
    EXPECT_EQ(host_.zvm->interrupts, 1);
    EXPECT_TRUE(host_.interruptPending);
}

TEST_F(FEvalTest, describesACallAndItsEndForDiagnosis) {
    const auto textOf = [](const cmddistributor::FEvalResult& result) {
        std::ostringstream out;
        result.fillStream(out);
        return out.str();
    };
    EXPECT_EQ(textOf({{7}, boost::none, one(jsonResult(u"[]"))}), "function call 7: struct 1x1");
    EXPECT_EQ(textOf({{7}, boost::none, one(nullptr)}), "function call 7: nothing");
    EXPECT_EQ(textOf({{7}, boost::none}), "function call 7: no results");
    EXPECT_EQ(textOf({{7},
                      cmddistributor::RuntimeException(nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:id",
                                                       u"reason")}),
              "function call 7: failed, NUMORA:id: reason");
    EXPECT_EQ(FEvalIIP("f\xC3\xA9", 1, nullptr, {}, nullptr, nullptr).toCustomerFriendlyString(), u"f\u00e9");
}

}  // namespace
}  // namespace connector::interpreter::v1
