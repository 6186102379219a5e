#include "connector/interpreter/v1/InterpreterJsonSerialization.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include <Poco/Dynamic/Var.h>
#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "connector/interpreter/v1/InterruptResponse.h"
#include "connector/json/parse.h"
#include "connector/wireWords.h"
#include "fl/i18n/text.h"
#include "v1/Compactor.h"
#include "v1/jsonFields.h"

namespace connector::interpreter::v1 {

namespace {

using connector::common::v1::Fault;
using connector::common::v1::Response;
using fl::i18n::to_string;
using fl::i18n::to_ustring;
using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

constexpr std::size_t mostArguments = 100'000;

void readFaults(const Object& object, Response& response) {
    const Var* const value = findField(object, "messageFaults");
    if (!value) return;
    constexpr std::string_view key = "messageFaults";
    constexpr std::string_view kind = "an array of objects";
    const auto& faults = reading(key, kind, [value]() -> const Array& { return containerIn<Array>(*value); });
    for (const Var& element : faults) {
        const auto& fault =
            reading(key, kind, [&element]() -> const Object& { return containerIn<Object>(element); });
        response.faults.emplace_back(valueOf<std::string>(fault, "faultCode"),
                                     valueOf<std::string>(fault, "message"));
    }
}

Object::Ptr written(const Fault& fault) {
    Array::Ptr conditions = new Array;
    for (const auto& condition : fault.conditions) {
        Object::Ptr object = new Object;
        object->set("faultId", condition.faultId);
        object->set("faultInfo", to_string(condition.faultInfo));
        conditions->add(object);
    }
    Object::Ptr object = new Object;
    object->set("message", fault.message);
    object->set("faultCode", fault.faultCode);
    object->set("faultConditions", conditions);
    return object;
}

void writeFaults(const Response& response, Object& object) {
    Array::Ptr faults = new Array;
    for (const Fault& fault : response.faults) faults->add(written(fault));
    object.set("messageFaults", faults);
}

void readFields(const Object& object, Eval& eval) {
    eval.mcode = textOf(object, "mcode");
    eval.width = valueOf<std::int32_t>(object, "width");
    eval.height = valueOf<std::int32_t>(object, "height");
    constexpr std::string_view seconds = "an integer number of seconds";
    const Var milliseconds = std::int64_t{1000} * valueOf<std::int32_t>(object, "timeout", 0, seconds);
    // Poco's conversion refuses what does not fit.
    eval.timeoutMs = reading("timeout", seconds, [&] { return milliseconds.convert<std::int32_t>(); });
}

void writeFields(const Eval& eval, Object& object) {
    object.set("mcode", to_string(eval.mcode));
    object.set("width", eval.width);
    object.set("height", eval.height);
    object.set("timeout", eval.timeoutMs / 1000);
}

void readFields(const Object& object, EvalResponse& response) {
    response.responseStr = textOf(object, "responseStr");
    response.promptType = valueOf<std::int32_t>(object, "promptType");
    response.clearCommandWindow = valueOf<bool>(object, "clearCommandWindow");
    response.isError = valueOf<bool>(object, "isError");
    readFaults(object, response);
}

void writeFields(const EvalResponse& response, Object& object) {
    object.set("responseStr", to_string(response.responseStr));
    object.set("promptType", response.promptType);
    object.set("clearCommandWindow", response.clearCommandWindow);
    object.set("isError", response.isError);
    writeFaults(response, object);
}

// They only pass through.
void readText(const connector::json::Text& arguments, FEval& feval) {
    if (arguments.json->front() != '[') throw Poco::BadCastException("\"arguments\" must be an array.");
    connector::json::forEachElement(arguments, [&feval](std::string_view argument) {
        if (feval.arguments.size() == mostArguments) {
            throw Poco::RangeException("\"arguments\" must be an array of at most " +
                                       std::to_string(mostArguments) + " elements.");
        }
        feval.arguments.push_back(to_ustring(argument));
    });
}

void readFields(const Object& object, FEval& feval) {
    feval.function = textOf(object, "function");
    feval.nargout = valueOf<std::int32_t>(object, "nargout");
    feval.priority = valueOf<std::int32_t>(object, "priority");
    feval.timeoutMs = valueOf<std::int32_t>(object, "timeoutMs");
    feval.dequeMode = valueOf<std::string>(object, "dequeMode");
    feval.outputMode = valueOf<std::string>(object, "outputMode");
    const bool rendersLinks = !feval.outputMode.empty() && feval.outputMode != "linenohook";
    feval.hotlinks = valueOf<bool>(object, "hotlinks", rendersLinks);
    const Var* const value = findField(object, "arguments");
    if (!value) return;
    if (value->type() == typeid(connector::json::Text))
        return readText(value->extract<connector::json::Text>(), feval);
    const auto& arguments =
        reading("arguments", "an array", [value]() -> const Array& { return containerIn<Array>(*value); });
    feval.arguments.reserve(arguments.size());
    Compactor compact;
    for (const Var& argument : arguments) feval.arguments.push_back(compact(argument));
}

void writeFields(const FEval& feval, Object& object) {
    object.set("function", to_string(feval.function));
    object.set("nargout", feval.nargout);
    object.set("priority", feval.priority);
    object.set("timeoutMs", feval.timeoutMs);
    object.set("dequeMode", feval.dequeMode);
    object.set("outputMode", feval.outputMode);
    object.set("hotlinks", feval.hotlinks);
    Array::Ptr arguments = new Array;
    for (const std::u16string& argument : feval.arguments) arguments->add(to_string(argument));
    object.set("arguments", arguments);
}

void readFields(const Object& object, FEvalResponse& response) {
    response.isError = valueOf<bool>(object, "isError");
    readFaults(object, response);
    const Var* const results = findField(object, "results");
    if (results && holds<Array>(*results)) response.results = Compactor()(*results);
}

void writeFields(const FEvalResponse& response, Object& object) {
    object.set("isError", response.isError);
    writeFaults(response, object);
    if (!response.results.empty()) object.set("results", to_string(response.results));
}

void readFields(const Object&, Interrupt&) {}
void writeFields(const Interrupt&, Object&) {}

void readFields(const Object& object, InterruptResponse& response) { readFaults(object, response); }
void writeFields(const InterruptResponse& response, Object& object) { writeFaults(response, object); }

template <class Msg>
std::unique_ptr<connector::Message> read(const Object::Ptr& pointer) {
    const Object& object = *pointer;  // throws when it is null
    auto message = std::make_unique<Msg>(valueOf<std::string>(object, "uuid"));
    readFields(object, *message);
    return message;
}

template <class Msg>
Object::Ptr write(const connector::Message& base) {
    const auto& message = dynamic_cast<const Msg&>(base);
    Object::Ptr object = new Object;
    object->set("uuid", message.uuid());
    writeFields(message, *object);
    return object;
}

template <class Msg>
void add(connector::json::JsonSerializer& serializer, const char* typeName) {
    // A call knows its arguments as text; the others do not look at them, whatever they hold.
    constexpr bool takesTexts = true;
    serializer.registerType(typeName, typeid(Msg), read<Msg>, write<Msg>, takesTexts);
}

}  // namespace

InterpreterJsonSerialization::InterpreterJsonSerialization(
    std::shared_ptr<connector::json::JsonSerializer> serializer)
    : serializer_(std::move(serializer)) {
    add<Eval>(*serializer_, wire::type::eval);
    add<EvalResponse>(*serializer_, wire::type::evalResponse);
    add<FEval>(*serializer_, wire::type::feval);
    add<FEvalResponse>(*serializer_, wire::type::fevalResponse);
    add<Interrupt>(*serializer_, wire::type::interrupt);
    add<InterruptResponse>(*serializer_, wire::type::interruptResponse);
}

}  // namespace connector::interpreter::v1
