#pragma once

#include <utility>

#include "cppmicroservices/Bundle.h"

namespace cppmicroservices {

/// A handle of a framework, which is itself a bundle. See there.
class Framework : public Bundle {
private:
    friend class FrameworkFactory;

    explicit Framework(Bundle bundle) : Bundle(std::move(bundle)) {}
};

}  // namespace cppmicroservices
