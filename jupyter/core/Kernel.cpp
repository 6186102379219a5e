#include "jupyter/Kernel.h"

#include <utility>

#include "KernelCore.h"

namespace jupyter {

Kernel::Kernel(Executor& executor, Interpreter& interpreter, Outlet& outlet, KernelOptions options)
    : core_(std::make_unique<Core>(executor, interpreter, outlet, std::move(options))) {}

Kernel::~Kernel() = default;

void Kernel::receive(Message message) { core_->receive(std::move(message)); }
void Kernel::welcome() { core_->welcome(); }
void Kernel::interrupt() { core_->interrupt(); }
void Kernel::restart(std::function<void(int, std::string)> answered) { core_->restart(std::move(answered)); }
void Kernel::resume() { core_->resume(); }
const char* Kernel::executionState() const { return core_->executionState(); }
double Kernel::lastActivity() const { return core_->lastActivity(); }

}  // namespace jupyter
