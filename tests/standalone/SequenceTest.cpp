#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <Poco/JSON/Stringifier.h>

#include "RunningInterpreter.h"
#include "connector/container/SequenceContainer.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "fl/i18n/text.h"

namespace v1 = connector::interpreter::v1;
using connector::container::SequenceContainer;

namespace {

class SequenceTest : public RunningInterpreter {
protected:
    SequenceTest() {
        eval(
            u"order = []\n"
            u"def note(name):\n    order.append(name)\n    return len(order)\n"
            u"def fail(name):\n    order.append(name)\n    raise ValueError(name)");
    }

    static std::unique_ptr<v1::FEval> request(const std::string& uuid, bool flag,
                                              const std::u16string& function = u"note") {
        auto message = std::make_unique<v1::FEval>(uuid);
        message->function = function;
        message->arguments = {fl::i18n::to_ustring('"' + uuid + '"')};
        message->nargout = 1;
        message->hotlinks = flag;
        return message;
    }
    /// The responses, each as "uuid: results" or "uuid: message of the fault".
    static std::vector<std::string> described(const connector::Message& answer) {
        std::vector<std::string> all;
        for (const auto& message : dynamic_cast<const SequenceContainer&>(answer).messages) {
            const auto& response = dynamic_cast<const v1::FEvalResponse&>(*message);
            all.push_back(response.uuid() + ": " +
                          (response.faults.empty() ? fl::i18n::to_string(response.results)
                                                   : response.faults.front().message));
        }
        return all;
    }
};

TEST_F(SequenceTest, callsClearFlagsFirstAndGoesOnAfterAFailure) {
    auto sequence = std::make_unique<SequenceContainer>("sequence");
    sequence->messages.push_back(request("A", true));
    sequence->messages.push_back(request("B", false, u"fail"));
    sequence->messages.push_back(request("C", true, u"missing"));
    sequence->messages.push_back(request("D", false));
    sequence->messages.push_back(request("E", true));
    const auto answer = deliver(std::move(sequence)).get();
    EXPECT_EQ(described(*answer),
              (std::vector<std::string>{"B: ValueError: B", "D: [2]", "A: [3]",
                                        "C: NameError: there is no function named 'missing'", "E: [4]"}));
    EXPECT_EQ(dynamic_cast<const SequenceContainer&>(*answer).uuid(), "sequence");
    EXPECT_EQ(textOf(u"order"), "['B', 'D', 'A', 'E']\n");
}

TEST_F(SequenceTest, answersTheJsonFormInTheJsonForm) {
    const std::string json = R"({"uuid":"s","messages":[
        {"type":"connector/v1/FEval","message":{"uuid":"1","function":"note","nargout":1,"arguments":["x"],
                                                "hotlinks":true}},
        {"type":"connector/v1/FEval","message":{"uuid":"2","function":"fail","nargout":1,"arguments":["y"]}},
        {"type":"connector/v1/FEval","message":{"uuid":"3","function":"divmod","nargout":2,"arguments":[7,2]}}
    ]})";
    auto sequence = serializer_->read("connector/v1/Sequence",
                                      Poco::JSON::Parser().parse(json).extract<Poco::JSON::Object::Ptr>());
    const auto answer = deliver(std::move(sequence)).get();
    std::ostringstream out;
    Poco::JSON::Stringifier::condense(serializer_->write(*answer), out);
    EXPECT_EQ(out.str(), R"({"messages":[)"
                         R"({"message":{"isError":true,"messageFaults":[{"faultCode":"NUMORA.CodeError",)"
                         R"("faultConditions":[],"message":"ValueError: y"}],"results":"[]","uuid":"2"},)"
                         R"("type":"connector/v1/FEvalResponse"},)"
                         R"({"message":{"isError":false,"messageFaults":[],"results":"[3,1]","uuid":"3"},)"
                         R"("type":"connector/v1/FEvalResponse"},)"
                         R"({"message":{"isError":false,"messageFaults":[],"results":"[2]","uuid":"1"},)"
                         R"("type":"connector/v1/FEvalResponse"}],"uuid":"s"})");
    EXPECT_EQ(textOf(u"order"), "['y', 'x']\n");
}

TEST_F(SequenceTest, goesOnAfterAnInterruptedCall) {
    eval(std::u16string(u"def endless():\n    order.append('begun')\n    ") + endlessLoop);
    auto sequence = std::make_unique<SequenceContainer>("sequence");
    auto endless = request("A", false, u"endless");
    endless->arguments.clear();
    sequence->messages.push_back(std::move(endless));
    sequence->messages.push_back(request("B", false));
    auto answer = deliver(std::move(sequence));
    ASSERT_TRUE(eventually([this] { return call(u"order.__len__", {}, 1, "ppe") == "[1]"; }));
    interrupt();
    EXPECT_EQ(described(*answer.get()), (std::vector<std::string>{"A: KeyboardInterrupt", "B: [2]"}));
}

}  // namespace
