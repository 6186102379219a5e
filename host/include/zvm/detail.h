#pragma once

#include <functional>
#include <memory>
#include <tuple>
#include <variant>

#include "cmddistributor/CmdDistributor.h"
#include "cmddistributor/RunOptions.h"
#include "nmutil/io/NMSink.h"
#include "zvm/ZVM.h"
#include "zvm/identities.h"

namespace zvm::detail {

/// A fresh identity for one queued request.  Threads: any.
foundation::msg_svc::exchange::IDType createID();

using Target = std::variant<std::shared_ptr<ZVM>, nmutil::contextmgr::NcrID>;
using DistributorAndSinks =
    std::tuple<std::shared_ptr<cmddistributor::CmdDistributor>, std::shared_ptr<nmutil::io::NMSink>,
               std::shared_ptr<nmutil::io::NMSink>>;

/// Where a request for `target` goes and where its output and error text go: the sinks that `runOptions`
/// names. A null sink stands for the command-window sink that is active when the text is printed. The
/// distributor is null when there is no such interpreter. Threads: any.
DistributorAndSinks getCmdDistributorAndSinks(const Target& target,
                                              const cmddistributor::RunOptions& runOptions);

/// Reaches a request through the distributor that it was handed to.
class CmdDistributorTaskReference : public TaskReference {
public:
    CmdDistributorTaskReference(std::shared_ptr<cmddistributor::CmdDistributor> distributor,
                                foundation::msg_svc::exchange::IDType id);
    void setReadyToExecute() override;
    void addContinuation(std::function<void()> continuation) override;
    CancelStatus cancel(bool interruptIfRunning) override;

private:
    const std::shared_ptr<cmddistributor::CmdDistributor> distributor_;
    const foundation::msg_svc::exchange::IDType id_;
};

/// Stands for a request that could not be queued: it never runs, and counts as ended.
class NullCmdDistributorTaskReference : public TaskReference {
public:
    void setReadyToExecute() override {}
    void addContinuation(std::function<void()> continuation) override { continuation(); }
    CancelStatus cancel(bool) override { return CancelStatus::NotFound; }
};

}  // namespace zvm::detail
