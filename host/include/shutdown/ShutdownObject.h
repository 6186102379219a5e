#pragma once

#include <memory>
#include <string>
#include <utility>

namespace shutdown {

/// Takes part in the end of the process. The host asks all objects `isOkToExit`, then calls, each for all
/// objects in turn, `exitState`, `closeAllWindows`, `shutdown` and `terminate`.
///
/// Threads: the interpreter thread.
class ShutdownObject {
public:
    explicit ShutdownObject(std::string name) : name_(std::move(name)) {}
    virtual ~ShutdownObject() = default;

    const std::string& name() const { return name_; }

    virtual bool isOkToExit() { return true; }
    virtual void exitState(bool) {}
    virtual void closeAllWindows() {}
    virtual void shutdown() {}
    virtual void terminate() {}

private:
    const std::string name_;
};

/// The process-wide list of shutdown objects.
///
/// Threads: any.  Locks: the list's own mutex, not held while an object is called.
class ShutdownRegistry {
public:
    /// `first` puts the object before the others. It stays registered until UnregisterObject.
    static void RegisterObject(std::shared_ptr<ShutdownObject> object, bool first);
    static void UnregisterObject(const ShutdownObject* object);

    /// For the host: asks and shuts down as described above. False, with nothing done, when an object objects
    /// and `force` is not set. An object's exception is logged and the others go on.
    static bool run(bool force);
};

/// The exit status of the process.  Threads: one at a time.
int& errorStatus();

}  // namespace shutdown
