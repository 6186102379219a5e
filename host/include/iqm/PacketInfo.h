#pragma once

#include <functional>
#include <memory>
#include <string>

#include "iqm/BaseIqmPlugin.h"
#include "nmutil/ScopedFactoryRegistration.h"
#include "nmutil/contextmgr/NcrID.h"

namespace iqm {

/// The process-wide table of plug-ins.
///
/// Threads: any.  Locks: the table's own mutex, not held while a factory runs.
class PacketInfo {
public:
    using Factory = std::function<std::unique_ptr<BaseIqmPlugin>(PluginOptions, nmutil::contextmgr::NcrID)>;

    /// Requests whose payload names `name` are run by what `factory` makes. `replace` allows to take the
    /// place of an earlier registration, which comes back when this one ends. Throws: std::invalid_argument,
    /// when the name is taken and `replace` is false.
    static nmutil::ScopedFactoryRegistration registerPlugin2(std::string name, Factory factory, bool replace);

    /// For the host: the plug-in for a request, or null when none is registered for it.
    static std::unique_ptr<BaseIqmPlugin> createPlugin(PluginOptions options, nmutil::contextmgr::NcrID ncr);
};

}  // namespace iqm
