#pragma once

#include <memory>
#include <utility>

#include "connector/common/requests.h"
#include "connector/shadow_files/v1/ShadowService.h"
#include "zvm/ZVM.h"

namespace standalone {

/// Clients of this host edit its files themselves, so there are no copies to wait for.
class LocalShadowService : public connector::shadow_files::v1::ShadowService {
public:
    bool isReady() const override { return true; }
};

/// Open while the interpreter is available and the copies of the clients' files are in place.
///
/// Threads: any.
class InterpreterGate : public connector::common::RequestGate {
public:
    InterpreterGate(std::shared_ptr<zvm::ZVM> zvm,
                    std::shared_ptr<connector::shadow_files::v1::ShadowService> files)
        : zvm_(std::move(zvm)), files_(std::move(files)) {}

    bool isOpen() override { return zvm_->isAvailable() && files_->isReady(); }

private:
    const std::shared_ptr<zvm::ZVM> zvm_;
    const std::shared_ptr<connector::shadow_files::v1::ShadowService> files_;
};

}  // namespace standalone
