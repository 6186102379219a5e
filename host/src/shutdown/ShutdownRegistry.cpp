#include <vector>

#include "connector/ThreadSafety.h"
#include "foundation/log/diagnostic_logger.h"
#include "shutdown/ShutdownObject.h"

namespace shutdown {

namespace {

struct ShutdownObjects {
    connector::Mutex mutex;
    std::vector<std::shared_ptr<ShutdownObject>> objects CONNECTOR_GUARDED_BY(mutex);
};

// Never destroyed: objects are registered and taken out while libraries load and unload.
ShutdownObjects& registry() {
    static auto* instance = new ShutdownObjects;
    return *instance;
}

template <class Step>
void forEach(const std::vector<std::shared_ptr<ShutdownObject>>& objects, Step step) {
    for (const auto& object : objects) {
        try {
            step(*object);
        } catch (...) {
            foundation::log::DiagnosticLogger("shutdown")
                .error("Problem shutting down " + object->name() + ".");
        }
    }
}

}  // namespace

void ShutdownRegistry::RegisterObject(std::shared_ptr<ShutdownObject> object, bool first) {
    connector::MutexLock lock(registry().mutex);
    auto& objects = registry().objects;
    objects.insert(first ? objects.begin() : objects.end(), std::move(object));
}

void ShutdownRegistry::UnregisterObject(const ShutdownObject* object) {
    connector::MutexLock lock(registry().mutex);
    std::erase_if(registry().objects, [object](const auto& held) { return held.get() == object; });
}

bool ShutdownRegistry::run(bool force) {
    std::vector<std::shared_ptr<ShutdownObject>> objects;
    {
        connector::MutexLock lock(registry().mutex);
        objects = registry().objects;
    }
    bool isOk = true;
    forEach(objects, [&isOk](ShutdownObject& object) { isOk = object.isOkToExit() && isOk; });
    if (!isOk && !force) return false;
    forEach(objects, [](ShutdownObject& object) { object.exitState(true); });
    forEach(objects, [](ShutdownObject& object) { object.closeAllWindows(); });
    forEach(objects, [](ShutdownObject& object) { object.shutdown(); });
    forEach(objects, [](ShutdownObject& object) { object.terminate(); });
    return true;
}

int& errorStatus() {
    static int status = 0;
    return status;
}

}  // namespace shutdown
