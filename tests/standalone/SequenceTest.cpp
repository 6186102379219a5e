#include <sstream>

#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <Poco/JSON/Stringifier.h>

#include "RunningInterpreter.h"

namespace {

using SequenceTest = RunningInterpreter;

TEST_F(SequenceTest, callsClearFlagsFirstAndGoesOnAfterAFailure) {
    eval(
        u"order = []\ndef note(name):\n    order.append(name)\n    return len(order)\n"
        u"def fail(name):\n    order.append(name)\n    raise ValueError(name)");
    const auto json = Poco::JSON::Parser().parse(R"({"uuid":"s","messages":[
        {"type":"connector/v1/FEval","message":{"uuid":"1","function":"note","nargout":1,"arguments":["x"],
                                                "hotlinks":true}},
        {"type":"connector/v1/FEval","message":{"uuid":"2","function":"fail","nargout":1,"arguments":["y"]}}
    ]})");
    auto sequence = serializer_->read("connector/v1/Sequence", json.extract<Poco::JSON::Object::Ptr>());
    std::ostringstream out;
    Poco::JSON::Stringifier::condense(serializer_->write(*deliver(std::move(sequence)).get()), out);
    EXPECT_EQ(out.str(), R"({"messages":[)"
                         R"({"message":{"isError":true,"messageFaults":[{"faultCode":"NUMORA.CodeError",)"
                         R"("faultConditions":[],"message":"ValueError: y"}],"results":"[]","uuid":"2"},)"
                         R"("type":"connector/v1/FEvalResponse"},)"
                         R"({"message":{"isError":false,"messageFaults":[],"results":"[2]","uuid":"1"},)"
                         R"("type":"connector/v1/FEvalResponse"}],"uuid":"s"})");
    EXPECT_EQ(textOf(u"order"), "['y', 'x']\n");
}

}  // namespace
