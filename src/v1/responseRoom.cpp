#include "v1/responseRoom.h"

#include <string>

#include "connector/container/SequenceContainer.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/wireWords.h"

namespace connector::interpreter::v1 {

namespace {

std::size_t sizeOf(const common::v1::Response& response) {
    std::size_t size = 0;
    for (const auto& fault : response.faults) size += fault.faultCode.size() + fault.message.size();
    return size;
}

template <class Response>
void takeRoomFor(std::size_t& room, Response& response, std::u16string& text, const char16_t* nothing) {
    const std::size_t size = text.size() + sizeOf(response);
    if (size <= room) {
        room -= size;
        return;
    }
    std::u16string(nothing).swap(text);  // an assignment may keep the storage
    response.faults.clear();
    response.isError = true;
    response.faults.emplace_back(wire::faultCode::code,
                                 "The request has run, but its result is left out: the responses of the "
                                 "sequence would be too large. Send such requests one by one.");
}

}  // namespace

void takeRoom(std::size_t& room, connector::Message* response) {
    if (auto* const call = dynamic_cast<FEvalResponse*>(response)) {
        takeRoomFor(room, *call, call->results, u"[]");
    } else if (auto* const evaluation = dynamic_cast<EvalResponse*>(response)) {
        takeRoomFor(room, *evaluation, evaluation->responseStr, u"");
    } else if (auto* const sequence = dynamic_cast<container::SequenceContainer*>(response)) {
        for (const auto& message : sequence->messages) takeRoom(room, message.get());
    }
}

}  // namespace connector::interpreter::v1
