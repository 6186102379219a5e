#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "connector/interpreter/ConnectorCmdWinSink.h"
#include "connector/interpreter/ConnectorEvalCmdRequest.h"
#include "connector/interpreter/ConnectorEvalPlugin.h"
#include "iqm/plugins.h"
#include "support/FakeHost.h"
#include "zvm/detail.h"

namespace connector::interpreter {
namespace {

using cmddistributor::RuntimeException;

struct Sink : ConnectorCmdWinSink {
    using ConnectorCmdWinSink::resetForTests;
};

class ConnectorEvalPluginTest : public testing::Test {
protected:
    ConnectorEvalPluginTest() { Sink::resetForTests(); }
    ~ConnectorEvalPluginTest() override { Sink::resetForTests(); }

    /// Runs `code` through the request queue and returns what the client is answered with.
    Future<ConnectorExecutionStatuses> evaluate(std::int32_t columns, std::int32_t rows) {
        const auto promise = std::make_shared<Promise<ConnectorExecutionStatuses>>();
        const auto id = zvm::detail::createID();
        host.distributor->enqueue(
            id, std::make_shared<ConnectorEvalCmdRequest>(u"code", promise, columns, rows, nullptr, nullptr),
            {}, std::make_shared<cmddistributor::PromiseDelegateT<ConnectorExecutionStatuses>>(promise));
        host.distributor->setReadyToExecute(id);
        EXPECT_TRUE(host.distributor->runNext());
        return promise->getFuture();
    }

    fake::FakeHost host;
    const nmutil::ScopedFactoryRegistration registration = iqm::PacketInfo::registerPlugin2(
        ConnectorEvalPlugin::registeredName,
        [](iqm::PluginOptions options, auto) {
            return std::make_unique<ConnectorEvalPlugin>(std::move(options));
        },
        false);
};

TEST_F(ConnectorEvalPluginTest, bracketsTheCodeWithALevelAndTheClientsWindowSize) {
    struct Row {
        std::int32_t columns, rows;
        std::uint64_t seenColumns, seenRows;
    };
    for (const Row row : {Row{0, 50, 80, 24}, Row{-1, 50, 80, 24}, Row{120, 50, 120, 50}}) {
        host.calls.clear();
        host.onEvaluate = [&](const std::u16string& code) {
            host.print(code);
            EXPECT_TRUE(ConnectorEvalPlugin::isLicenceBusy());
            EXPECT_EQ(host.columns, row.seenColumns);
            EXPECT_EQ(host.rows, row.seenRows);
        };
        // Text that the host prints while it is told of the end still belongs to the evaluation.
        host.onPendingInterests = [this] { host.print(u" end"); };
        EXPECT_EQ(evaluate(row.columns, row.rows).get().output, u"code end");
        EXPECT_EQ(host.columns, 80U);
        EXPECT_EQ(host.rows, 24U);
        EXPECT_FALSE(ConnectorEvalPlugin::isLicenceBusy());
        EXPECT_THAT(host.calls, testing::ElementsAre("evalEnd", "interests"));
    }
}

TEST_F(ConnectorEvalPluginTest, reportsErrorsOfBuiltinsAndExtensionsThemselves) {
    struct Row {
        bool inExtension;
        boost::optional<std::string> builtin;
        bool isReportable;
    };
    host.onEvaluate = [](const std::u16string&) {
        throw RuntimeException(nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:x", u"x");
    };
    for (const Row& row : {Row{false, boost::none, false}, Row{false, std::string("error"), false},
                           Row{false, std::string("sin"), true}, Row{true, std::string("error"), true}}) {
        host.inCompiledExtension = row.inExtension;
        host.builtinName = row.builtin;
        EXPECT_EQ(evaluate(0, 0).get().hadReportableError, row.isReportable)
            << row.inExtension << row.builtin.get_value_or("none");
    }
}

TEST_F(ConnectorEvalPluginTest, answersAnEvaluationThatAskedForInputOnce) {
    host.onEvaluate = [this](const std::u16string&) {
        host.print(u"Name? ");
        host.prompt = nmutil::prompt::INPUT_PROMPT;
        Sink::getInstance(false)->requestInput();
        host.print(u"rest");
    };
    EXPECT_EQ(evaluate(0, 0).get().output, u"Name? ");
    EXPECT_EQ(services::io::CmdWinSinkHandle::activeSink(false), host.window);
    // What came after the answer, with nobody waiting for it, is no part of the next one.
    host.onEvaluate = [this](const std::u16string& code) { host.print(code); };
    EXPECT_EQ(evaluate(0, 0).get().output, u"code");
}

TEST_F(ConnectorEvalPluginTest, leavesNothingBehindWhenTheWindowSizeIsRefused) {
    host.onSetRows = [](std::uint64_t rows) {
        if (rows == 50) throw std::runtime_error("host");
    };
    EXPECT_THROW(evaluate(120, 50).get(), RuntimeException);
    EXPECT_EQ(services::io::CmdWinSinkHandle::activeSink(false), host.window);
    EXPECT_EQ(host.columns, 80U);
    EXPECT_FALSE(ConnectorEvalPlugin::isLicenceBusy());
}

TEST_F(ConnectorEvalPluginTest, answersTheClientWhenTheHostFailsAfterTheCode) {
    host.onEvaluate = [this](const std::u16string& code) { host.print(code); };
    host.onPendingInterests = [] { throw std::runtime_error("host"); };
    EXPECT_EQ(evaluate(0, 0).get().output, u"code");
    EXPECT_EQ(services::io::CmdWinSinkHandle::activeSink(false), host.window);
}

}  // namespace
}  // namespace connector::interpreter
