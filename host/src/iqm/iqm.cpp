#include <algorithm>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <unordered_map>
#include <vector>

#include "connector/ThreadSafety.h"
#include "iqm/plugins.h"

namespace iqm {

namespace {

using SharedFactory = std::shared_ptr<const PacketInfo::Factory>;

struct PluginTable {
    connector::Mutex mutex;
    std::unordered_map<std::string, std::vector<SharedFactory>> factories
        CONNECTOR_GUARDED_BY(mutex);  // newest last
};

// Never destroyed: a registration that a static object holds may end after this file's own statics.
PluginTable& registry() {
    static auto* instance = new PluginTable;
    return *instance;
}

void unregister(const std::string& name, const SharedFactory& factory) {
    connector::MutexLock lock(registry().mutex);
    auto& stack = registry().factories[name];
    stack.erase(std::remove(stack.begin(), stack.end(), factory), stack.end());
    if (stack.empty()) registry().factories.erase(name);
}

}  // namespace

nmutil::ScopedFactoryRegistration PacketInfo::registerPlugin2(std::string name, Factory factory,
                                                              bool replace) {
    auto shared = std::make_shared<const Factory>(std::move(factory));
    {
        connector::MutexLock lock(registry().mutex);
        auto& stack = registry().factories[name];
        if (!stack.empty() && !replace) {
            throw std::invalid_argument("A plug-in named " + name + " is registered already.");
        }
        stack.push_back(shared);
    }
    return nmutil::ScopedFactoryRegistration([name = std::move(name), shared] { unregister(name, shared); });
}

std::unique_ptr<BaseIqmPlugin> PacketInfo::createPlugin(PluginOptions options,
                                                        nmutil::contextmgr::NcrID ncr) {
    SharedFactory factory;
    {
        connector::MutexLock lock(registry().mutex);
        const auto found = registry().factories.find(options.getIIP()->pluginName());
        if (found == registry().factories.end()) return nullptr;
        factory = found->second.back();
    }
    return (*factory)(std::move(options), ncr);
}

void UserEvalPlugin::execute(Workspace& workspace) {
    while (hasMoreCmds()) InternalEvalPlugin::inEvalCmdWithLocalReturn(getNextCommand(), workspace);
}

std::u16string UserEvalPlugin::getNextCommand() {
    given_ = true;
    return iip().code();
}

}  // namespace iqm
