#pragma once

#include <memory>
#include <string>

#include "bundles/BundleLibrary.h"
#include "bundles/BundleRecord.h"
#include "bundles/OperationGate.h"

namespace cppmicroservices::detail {

/// A bundle that was installed from a library.
class InstalledBundle final : public BundleRecord {
public:
    /// Throws: std::runtime_error, when `headers` have no symbolic name or a bad version.
    InstalledBundle(std::weak_ptr<FrameworkCore> framework, long id, std::string location, AnyMap headers);

    void start() override;
    void stop() override;
    void uninstall() override;
    std::shared_ptr<FrameworkCore> framework() override;

    /// The framework has stopped: the bundle is no longer one of it.
    void forget() { setState(Bundle::STATE_UNINSTALLED); }

private:
    // These run inside the gate, which guards library_.
    void startInside(FrameworkCore& framework);
    void stopInside(FrameworkCore& framework);
    void endStart(FrameworkCore& framework);

    const std::weak_ptr<FrameworkCore> framework_;
    const bool hasActivator_;
    OperationGate gate_;
    BundleLibrary library_;
};

}  // namespace cppmicroservices::detail
