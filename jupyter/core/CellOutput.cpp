#include "CellOutput.h"

#include <array>
#include <sstream>
#include <utility>

#include <Poco/Base64Decoder.h>
#include <Poco/JSON/Array.h>
#include <Poco/StreamCopier.h>

#include "JsonMembers.h"
#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "connector/wireWords.h"

namespace jupyter {

using Members = Publisher::Members;

namespace {

constexpr std::size_t mostPayloadBytes = std::size_t{4} << 20;

std::vector<std::string> decoded(std::string_view base64Texts) {
    std::vector<std::string> buffers;
    if (base64Texts.empty()) return buffers;
    const auto texts = connector::json::parse(base64Texts).extract<Poco::JSON::Array::Ptr>();
    for (unsigned i = 0; i < texts->size(); ++i) {
        std::istringstream text(texts->getElement<std::string>(i));
        Poco::Base64Decoder decoder(text);
        Poco::StreamCopier::copyToString(decoder, buffers.emplace_back());
    }
    return buffers;
}

// Where the rows of a table are is of no use in a notebook, which is kept for longer than the interpreter.
std::string withoutOwn(std::string metadata) {
    constexpr std::string_view own = "numora";
    if (JsonMembers(metadata).json(own).empty()) return metadata;
    Members others;
    for (const auto& [name, value] : wire::rawMembers(metadata)) {
        if (name != own) others.addJson(name, value);
    }
    return others.take();
}

}  // namespace

CellOutput::Take CellOutput::takerOf(std::string_view channel) {
    static constexpr std::array<std::pair<std::string_view, Take>, 10> takers = {
        {{connector::wire::channel::output, &CellOutput::takeOutput},
         {connector::wire::channel::error, &CellOutput::takeErrorText},
         {connector::wire::channel::clear, &CellOutput::takeWindowClear},
         {connector::wire::channel::home, &CellOutput::takeWindowHome},
         {"/eventmgr/0/display", &CellOutput::takeDisplay},
         {"/eventmgr/0/figure", &CellOutput::takeFigure},
         {"/eventmgr/0/clear", &CellOutput::takeClear},
         {"/eventmgr/0/error", &CellOutput::takeError},
         {"/eventmgr/0/payload", &CellOutput::takePayload},
         {"/eventmgr/0/comm", &CellOutput::takeComm}}};
    for (const auto& [name, taker] : takers) {
        if (name == channel) return taker;
    }
    return nullptr;
}

bool CellOutput::concernsAll(const InterpreterEvent& event) {
    const Take taker = takerOf(event.channel);
    if (taker == &CellOutput::takeComm) return JsonMembers(event.data).text("kind") != "stream";
    return taker == &CellOutput::takeDisplay && JsonMembers(event.data).text("kind") == "update";
}

bool CellOutput::take(const InterpreterEvent& event) {
    const Take taker = takerOf(event.channel);
    if (taker == nullptr) return false;
    (this->*taker)(event.data);
    return true;
}

void CellOutput::takeOutput(std::string_view data) { publisher_.stream(parent_, "stdout", data); }
void CellOutput::takeErrorText(std::string_view data) { publisher_.stream(parent_, "stderr", data); }
void CellOutput::tell(const std::string& line) { takeErrorText(connector::json::quoted(line + '\n')); }

void CellOutput::takeWindowClear(std::string_view) { clear(false); }
void CellOutput::takeWindowHome(std::string_view) { clear(true); }
void CellOutput::takeClear(std::string_view data) { clear(JsonMembers(data).isTrue("wait")); }

void CellOutput::clear(bool wait) {
    publisher_.publish(parent_, "clear_output", Members().add("wait", wait));
}

void CellOutput::takeDisplay(std::string_view data) {
    const JsonMembers event(data);
    if (const auto note = event.text("note"); !note.empty()) tell("[" + note + "]");
    const auto kind = event.json("kind");
    Members content;
    content.addJson("data", event.jsonOr("data", "{}"))
        .addJson("metadata", withoutOwn(event.jsonOr("metadata", "{}")));
    if (kind == R"("result")") {
        if (!count_) return;
        return publisher_.publish(parent_, "execute_result", content.add("execution_count", *count_));
    }
    const auto* const type = kind == R"("update")" ? "update_display_data" : "display_data";
    publisher_.publish(parent_, type, content.addJson("transient", event.jsonOr("transient", "{}")));
}

void CellOutput::takeFigure(std::string_view data) {
    const JsonMembers figure(data);
    const auto png = figure.json("png");
    if (!png.starts_with('"')) return;
    publisher_.publish(parent_, "display_data",
                       Members()
                           .add("data", Members()
                                            .addJson("image/png", png)
                                            .addJson("text/plain", figure.jsonOr("text", R"("<Figure>")")))
                           .addJson("metadata", "{}")
                           .addJson("transient", "{}"));
}

void CellOutput::takeError(std::string_view data) {
    const JsonMembers event(data);
    ErrorText error{event.jsonOr("name", R"("Error")"), event.jsonOr("value", R"("")"),
                    event.jsonOr("traceback", "[]")};
    if (event.isTrue("caught")) return publisher_.error(parent_, error);
    fail(std::move(error));
}

void CellOutput::fail(ErrorText error) {
    publisher_.error(parent_, error);
    error_ = std::move(error);
}

void CellOutput::takePayload(std::string_view data) {
    const auto payload = JsonMembers(data).json("payload");
    if (!payload.starts_with('{')) return;
    if (payloads_.size() + payload.size() > mostPayloadBytes) return tell("A payload was too large.");
    payloads_.append(payloads_.empty() ? "" : ",").append(payload);
}

// What handlers of comms print is said so, since it comes of a call, whose text goes to no client.
void CellOutput::takeComm(std::string_view data) {
    const JsonMembers event(data);
    const std::string kind = event.text("kind");
    if (kind == "stream") {
        return publisher_.stream(parent_, event.text("name"), event.jsonOr("text", R"("")"));
    }
    Members content;
    content.addJson("comm_id", event.jsonOr("comm_id", R"("")")).addJson("data", event.jsonOr("data", "{}"));
    if (kind == "open") content.addJson("target_name", event.jsonOr("target_name", R"("")"));
    publisher_.publish(parent_, "comm_" + kind, std::move(content), event.jsonOr("metadata", "{}"),
                       decoded(event.json("buffers")));
}

}  // namespace jupyter
