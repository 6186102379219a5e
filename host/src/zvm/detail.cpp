#include "zvm/detail.h"

#include <atomic>

#include "zvm/ZVM.h"

namespace zvm::detail {

foundation::msg_svc::exchange::IDType createID() {
    static std::atomic<std::uint64_t> last{0};
    return {last.fetch_add(1, std::memory_order_relaxed) + 1};
}

DistributorAndSinks getCmdDistributorAndSinks(const Target& target,
                                              const cmddistributor::RunOptions& runOptions) {
    using nmutil::contextmgr::NcrID;
    const auto* ncr = std::get_if<NcrID>(&target);
    std::shared_ptr<ZVM> zvm;
    if (ncr == nullptr) {
        zvm = std::get<std::shared_ptr<ZVM>>(target);
    } else if (*ncr == NcrID()) {
        zvm = Factory::getCurrentLocalZVM();
    }
    return {zvm ? zvm->getCmdDistributor() : nullptr, runOptions.getOutSink(), runOptions.getErrSink()};
}

CmdDistributorTaskReference::CmdDistributorTaskReference(
    std::shared_ptr<cmddistributor::CmdDistributor> distributor, foundation::msg_svc::exchange::IDType id)
    : distributor_(std::move(distributor)), id_(id) {}

void CmdDistributorTaskReference::setReadyToExecute() { distributor_->setReadyToExecute(id_); }

void CmdDistributorTaskReference::addContinuation(std::function<void()> continuation) {
    distributor_->addContinuation(id_, std::move(continuation));
}

TaskReference::CancelStatus CmdDistributorTaskReference::cancel(bool interruptIfRunning) {
    return distributor_->cancel(id_, interruptIfRunning);
}

}  // namespace zvm::detail
