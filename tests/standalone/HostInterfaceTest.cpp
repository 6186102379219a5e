// What the interpreter does with requests and notifications of the host interface that clients do not use.

#include <chrono>
#include <sstream>

#include "MException/MException.h"
#include "RunningInterpreter.h"
#include "cmddistributor/IIPResult.h"
#include "interpreter/IInterpreter.h"
#include "iqm/plugins.h"
#include "nmutil/cmddistributor/LockBFLHelper.h"
#include "zvm/detail.h"

namespace {

using cmddistributor::IqmStreamID;
using cmddistributor::RuntimeException;

/// How a request has ended.
struct Outcome {
    boost::optional<RuntimeException> exception;
    std::string results;  ///< of a function call, in words
};

class OutcomeDelegate : public cmddistributor::PromiseDelegate {
public:
    void complete(const cmddistributor::IIPResult& result) noexcept override {
        std::ostringstream words;
        if (const auto* call = dynamic_cast<const cmddistributor::FEvalResult*>(&result))
            call->fillStream(words);
        const std::string text = words.str();
        outcome.set_value({result.exception(), text.substr(std::min(text.find(": ") + 2, text.size()))});
    }
    void waitTillReady() override {}
    bool isPromiseDone() const override { return false; }

    std::promise<Outcome> outcome;
};

/// Tells where the error of its code arose.
class OriginPlugin : public iqm::UserEvalPlugin {
public:
    static inline std::string origin;
    using UserEvalPlugin::UserEvalPlugin;
    void processMFileError() override {
        origin = mdGetCurrentBuiltinFcnName().value_or("code");
        if (mdInAMexFile()) origin += " of an extension";
    }
};

class HostInterfaceTest : public RunningInterpreter {
protected:
    std::future<Outcome> outcomeOf(std::shared_ptr<cmddistributor::CmdRequest> request) {
        const auto distributor = host_->zvm()->getCmdDistributor();
        const auto delegate = std::make_shared<OutcomeDelegate>();
        const auto id = zvm::detail::createID();
        distributor->enqueue(id, std::move(request), {}, delegate);
        distributor->setReadyToExecute(id);
        return delegate->outcome.get_future();
    }
    std::future<Outcome> submitCode(const std::u16string& code, bool isInternal = false) {
        return outcomeOf(std::make_shared<cmddistributor::EvalCmdRequest>(
            isInternal, IqmStreamID::User, nullptr, nullptr, code, "test::Eval"));
    }
    Outcome callWith(cmddistributor::FEvalIIP::Function function, std::int32_t nargout,
                     std::vector<matrix::ArrayPtr> arguments) {
        auto data = std::make_shared<cmddistributor::FEvalIIP::Data>();
        data->arguments = std::move(arguments);
        auto request = std::make_shared<cmddistributor::FEvalCmdRequest>(
            std::move(function), nargout, std::move(data), IqmStreamID::User, nullptr, nullptr);
        return outcomeOf(std::move(request)).get();
    }

private:
    const nmutil::ScopedFactoryRegistration plugin_ = iqm::PacketInfo::registerPlugin2(
        "test::Eval",
        [](iqm::PluginOptions options, nmutil::contextmgr::NcrID) {
            return std::make_unique<OriginPlugin>(std::move(options));
        },
        false);
};

std::vector<matrix::ArrayPtr> arraysOfEveryClass() {
    mxArray::Cells cells;
    cells.push_back(matrix::createScalar(1.5));
    cells.push_back(nullptr);
    std::vector<matrix::Field> fields;
    fields.push_back({"name", matrix::create(u"n")});
    std::vector<matrix::ArrayPtr> arrays;
    arrays.push_back(matrix::create(u"text"));
    arrays.push_back(matrix::createScalar(2));
    arrays.emplace_back(new mxArray({2, 2}, std::vector<double>{1, 3, 2, 4}));
    arrays.emplace_back(new mxArray({1, 2}, std::vector<bool>{true, false}));
    arrays.emplace_back(new mxArray({1, 2}, std::move(cells)));
    arrays.push_back(matrix::createStruct(std::move(fields)));
    return arrays;
}

TEST_F(HostInterfaceTest, callsAnyFunctionByNameOrHandleWithArrays) {
    eval(u"import numpy\ndef swap(*values):\n    global seen\n    seen = values\n    return values[::-1]");
    EXPECT_EQ(callWith("swap", 6, arraysOfEveryClass()).results,
              "struct 1x1 cell 1x2 logical 1x2 double 2x2 double 1x1 char 1x4");
    EXPECT_EQ(textOf(u"seen"), "('text', 2, [[1, 2], [3, 4]], [True, False], [1.5, None], {'name': 'n'})\n");
    EXPECT_EQ(callWith("swap", 2, arraysOfEveryClass()).results, "struct 1x1 cell 1x2");
    EXPECT_EQ(callWith("numpy.eye", 1, arraysOfEveryClass()).exception->GetID(), "NUMORA:TypeError");
    using Handle = std::shared_ptr<const mxArray>;
    const auto two = [] {
        std::vector<matrix::ArrayPtr> arguments;
        arguments.push_back(matrix::createScalar(2));
        return arguments;
    };
    EXPECT_EQ(callWith(Handle(matrix::create(u"numpy.eye")), 1, two()).results, "double 2x2");
    EXPECT_EQ(callWith(Handle(matrix::createScalar(1)), 1, two()).exception->GetID(), "NUMORA:feval");
    EXPECT_EQ(callWith("nosuch", 1, two()).exception->GetID(), "NUMORA:NameError");
    EXPECT_EQ(callWith("abs", 2, two()).exception->GetID(), "NUMORA:ValueError");
    EXPECT_EQ(callWith("complex", 1, two()).exception->what(),
              std::string("A value of type complex cannot be passed as an array."));
}

TEST_F(HostInterfaceTest, tellsWhereAnErrorAroseAndWhatLedToIt) {
    const std::vector<std::pair<std::u16string, std::string>> origins = {
        {u"int('x')", "int"},
        {u"1 / 0", "code"},
        {u"def f(): raise ValueError('x')\nf()", "code"},
        {u"'é'; 'abc'.index(\n    'z')", "str.index"},
        {u"import numpy\nnumpy.array(object(), float)", "array of an extension"},
        {u"numpy.add()", "add of an extension"},
    };
    for (const auto& [code, origin] : origins) {
        EXPECT_TRUE(submitCode(code).get().exception);
        EXPECT_EQ(OriginPlugin::origin, origin);
    }
    const auto outcome = submitCode(
                             u"try:\n    {}['key']\nexcept KeyError:\n    try:\n        int('x')\n"
                             u"    except ValueError as e:\n        raise OSError('disk') from e")
                             .get();
    std::string chain;
    const std::vector<RuntimeException>* causes = &outcome.exception->getCauses();
    while (!causes->empty()) {
        ASSERT_EQ(causes->size(), 1U);
        chain += causes->front().GetID() + '@' +
                 std::to_string(causes->front().getStackFrames().back().line) + ' ';
        causes = &causes->front().getCauses();
    }
    EXPECT_EQ(chain, "NUMORA:ValueError@5 NUMORA:KeyError@2 ");
}

TEST_F(HostInterfaceTest, keepsInternalCodeOutOfTheHistory) {
    submitCode(u"x = 1", true).get();
    submitCode(u"y = x + 1").get();
    EXPECT_EQ(textOf(u"import numora; [h['code'] for h in numora.history()][:1], y"), "(['y = x + 1'], 2)\n");
}

TEST_F(HostInterfaceTest, aTaskRaisesErrorsAndSetsTheLastOne) {
    using MException::MExceptionEnvelope;
    const auto disk = matrix::create(u"disk");
    MExceptionEnvelope error("NUMORA:test:full", u"The {0} is {1}.", disk.get(), false);
    error.AddCause(MExceptionEnvelope("NUMORA:test:write", u"A write failed.", nullptr, false));
    const auto raise = [&] { throw MException::CreateMException(error); };
    const auto raised =
        outcomeOf(std::make_shared<cmddistributor::PackagedTaskCmdRequest>(raise)).get().exception.value();
    EXPECT_EQ(raised.getText(), u"The disk is {1}.\nCaused by:\n    A write failed.\n");
    const std::u16string last = u"import sys; e = sys.last_value; e.identifier, str(e), str(e.__cause__)";
    onInterpreter([&] { MException::LastMException::Set(raised); });
    EXPECT_EQ(textOf(last), "('NUMORA:test:full', 'The disk is {1}.', 'A write failed.')\n");
    onInterpreter([&] { MException::LastError::Set(error.causes().front()); });
    EXPECT_EQ(textOf(last), "('NUMORA:test:write', 'A write failed.', 'None')\n");
}

TEST_F(HostInterfaceTest, anyThreadMayHoldTheInterpretersLock) {
    std::future<Outcome> evaluated;
    {
        const nmutil::cmddistributor::LockBFLHelper outer;
        const nmutil::cmddistributor::LockBFLHelper inner;
        evaluated = submitCode(u"x = 1");
        EXPECT_EQ(evaluated.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    }
    EXPECT_FALSE(evaluated.get().exception);
}

}  // namespace
