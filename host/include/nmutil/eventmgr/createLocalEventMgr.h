#pragma once

#include <memory>

#include <boost/optional.hpp>

#include "foundation/msg_svc/eventmgr/EventMgr.h"
#include "zvm/ZvmID.h"

namespace nmutil::eventmgr {

/// The event manager of the interpreter that `id` names, or of the local one.
/// Threads: any.  Throws: std::runtime_error when no environment is installed or the interpreter is unknown.
std::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> createLocalEventMgr(
    const boost::optional<zvm::ZvmID>& id = boost::none);

}  // namespace nmutil::eventmgr
