#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace connector::common::v1 {

/// The version of a message's form. What is built by default is the form of the "connector/v1" types.
struct Version {
    std::int32_t majorNumber = 1;
    std::int32_t minorNumber = 0;

    bool operator==(const Version&) const = default;
};

/// The part of a message that every serialisable class has: which request it is, and in which form.
/// The type name on the wire is no state of a message; the serializer's registration knows it by the class.
///
/// Threads: one at a time, like the message that it is part of.
class Message {
public:
    /// `uuid` is in UTF-8; a response carries the one of its request.
    explicit Message(std::string uuid, Version version = {}) : uuid_(std::move(uuid)), version_(version) {}
    virtual ~Message() = default;

    const std::string& uuid() const { return uuid_; }
    void setUuid(std::string uuid) { uuid_ = std::move(uuid); }
    const Version& version() const { return version_; }

private:
    std::string uuid_;
    Version version_;
};

/// One circumstance of a fault.
struct FaultCondition {
    std::string faultId;       ///< in UTF-8
    std::u16string faultInfo;  ///< for the user
};

/// Why a request did not end as asked. Texts are in UTF-8.
struct Fault {
    /// A fault without a code.
    explicit Fault(std::string text) : message(std::move(text)) {}
    Fault(std::string code, std::string text, std::vector<FaultCondition> circumstances = {})
        : faultCode(std::move(code)), message(std::move(text)), conditions(std::move(circumstances)) {}

    std::string faultCode;
    std::string message;
    std::vector<FaultCondition> conditions;
};

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
