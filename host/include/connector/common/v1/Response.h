#pragma once

#include <string>
#include <utility>
#include <vector>

#include "connector/common/v1/Fault.h"
#include "connector/common/v1/Message.h"

namespace connector::common::v1 {

/// The part of a response that every class of responses has: what went wrong, in the order in which it did.
class Response : public Message {
public:
    explicit Response(Version version = {}) : Response(std::vector<Fault>(), version) {}
    explicit Response(std::vector<Fault> problems, Version version = {})
        : Response(std::string(), std::move(problems), version) {}
    Response(std::string uuid, std::vector<Fault> problems, Version version = {})
        : Message(std::move(uuid), version), faults(std::move(problems)) {}

    std::vector<Fault> faults;
};

}  // namespace connector::common::v1
