#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "connector/Promise.h"
#include "connector/interpreter/ConnectorExecutionStatuses.h"
#include "zvm/detail.h"

namespace connector::interpreter::v1 {

/// Types characters for the code that waits at a prompt: at that with the number `prompt`, unless it is 0.
///
/// Threads: the interpreter thread.  Throws: cmddistributor::RuntimeException with EXECUTION_CANCELLED, when
/// no code waits there any more: they were meant for that code and must not run as code themselves;
/// std::length_error, when too much is typed ahead.
void typeAtPrompt(const std::u16string& characters, std::uint64_t prompt = 0);

/// The capture levels of typed characters. Each opens as its characters are typed, and all of them end with
/// the code that reads these: one task, which waits for the base prompt, closes them.
///
/// Threads: the interpreter thread, but for the constructor.
class TypedLevels : public std::enable_shared_from_this<TypedLevels> {
public:
    using Task = zvm::detail::CmdDistributorTaskReference;

    /// `zvm` may be null, when nothing is ever typed.
    explicit TypedLevels(std::shared_ptr<zvm::ZVM> zvm) : zvm_(std::move(zvm)) {}

    /// Types `characters`, and opens a level that is answered through `promise`. Returns the task that closes
    /// it.  Throws: as typeAtPrompt, ConnectorCmdWinSink::preEval and queueTask; no level is open then.
    Task type(const std::u16string& characters,
              const std::shared_ptr<Promise<ConnectorExecutionStatuses>>& promise);

private:
    void closeAll();

    const std::shared_ptr<zvm::ZVM> zvm_;
    std::size_t open_ = 0;
    std::optional<Task> closing_;  ///< queued as long as levels are open
};

}  // namespace connector::interpreter::v1
