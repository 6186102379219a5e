#include "gateway/workers.h"

#include <utility>

#include "ports/WorkerPort.h"

namespace gateway {

GatewayOptions::MakePort workerPorts(supervisor::Supervisor& supervisor, std::filesystem::path folder,
                                     std::filesystem::path venv) {
    return [&supervisor, folder = std::move(folder), venv = std::move(venv)](
               boost::asio::io_context& context, messages::LocalMessageService& messages,
               ports::InterpreterSpec spec) {
        if (spec.worker.folder.empty()) spec.worker.folder = folder;
        if (spec.worker.venv.empty()) spec.worker.venv = venv;
        return std::make_unique<ports::WorkerPort>(context, messages, supervisor, spec);
    };
}

}  // namespace gateway
