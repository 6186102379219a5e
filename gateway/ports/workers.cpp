#include "gateway/workers.h"

#include "ports/WorkerPort.h"

namespace gateway {

GatewayOptions::MakePort workerPorts(supervisor::Supervisor& supervisor) {
    return [&supervisor](boost::asio::io_context& context, messages::LocalMessageService& messages,
                         const ports::InterpreterSpec& spec) {
        return std::make_unique<ports::WorkerPort>(context, messages, supervisor, spec);
    };
}

}  // namespace gateway
