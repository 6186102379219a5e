#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include "connector/message_service/MessageService.h"

namespace contract {

/// A client of a message service, in whatever way it reaches it. Gone, it has closed.
class Client {
public:
    virtual ~Client() = default;
    virtual std::string id() const = 0;
    /// False once it has closed.
    virtual bool subscribe(const std::string& pattern) = 0;
    virtual bool unsubscribe(const std::string& pattern) = 0;
    virtual void close() = 0;
};

/// A message service, and a way for clients to come.
class MessageServiceWithClients {
public:
    virtual ~MessageServiceWithClients() = default;
    virtual connector::message_service::MessageService& service() = 0;
    virtual std::unique_ptr<Client> connect(const std::string& clientType) = 0;
};

/// One implementation, which the contract is instantiated with.
struct MessageServiceCase {
    std::string name;
    std::function<std::unique_ptr<MessageServiceWithClients>()> make;
};
inline void PrintTo(const MessageServiceCase& row, std::ostream* out) { *out << row.name; }

}  // namespace contract
