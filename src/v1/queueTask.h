#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "cmddistributor/CmdRequest.h"
#include "nmutil/cmddistributor/LockBFLHelper.h"
#include "zvm/detail.h"

namespace connector::interpreter::v1 {

/// Queues a request on the interpreter; it runs once it is set ready through the reference that is returned.
/// Its identity goes to `id` if that is not null. Throws: cmddistributor::RuntimeException, when the queue
/// takes none.
inline zvm::detail::CmdDistributorTaskReference queueRequest(
    const std::shared_ptr<zvm::ZVM>& zvm, const cmddistributor::RunOptions& options,
    std::shared_ptr<cmddistributor::CmdRequest> request,
    std::shared_ptr<cmddistributor::PromiseDelegate> delegate,
    foundation::msg_svc::exchange::IDType* id = nullptr) {
    const auto distributor = zvm->getCmdDistributor();
    const auto ownId = zvm::detail::createID();
    distributor->enqueue(ownId, std::move(request), options, std::move(delegate));
    if (id != nullptr) *id = ownId;
    return {distributor, ownId};
}

/// The same for a task, which holds the interpreter's lock.
inline zvm::detail::CmdDistributorTaskReference queueTask(
    const std::shared_ptr<zvm::ZVM>& zvm, const cmddistributor::RunOptions& options,
    std::function<void()> task, std::shared_ptr<cmddistributor::PromiseDelegate> delegate,
    foundation::msg_svc::exchange::IDType* id = nullptr) {
    return queueRequest(zvm, options,
                        std::make_shared<cmddistributor::PackagedTaskCmdRequest>([task = std::move(task)] {
                            const nmutil::cmddistributor::LockBFLHelper lock;
                            task();
                        }),
                        std::move(delegate), id);
}

}  // namespace connector::interpreter::v1
