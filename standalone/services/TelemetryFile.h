#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "connector/Future.h"
#include "connector/ThreadSafety.h"
#include "connector/ddux/ddux.h"

namespace standalone {

/// Keeps telemetry records as lines of JSON at the end of a file:
/// `{"time": milliseconds of the system clock, "source": ..., "event": ..., "payload": ...}`.
///
/// Threads: every operation from any thread.  Locks: mutex_, a leaf, while one line is written or another
/// file taken.
class TelemetryFile {
public:
    explicit TelemetryFile(const std::string& path) { use(path); }
    ~TelemetryFile();
    TelemetryFile(const TelemetryFile&) = delete;
    TelemetryFile& operator=(const TelemetryFile&) = delete;

    /// From now on records go to this file. Without a path nothing is kept. A file that cannot be opened is
    /// logged, and nothing is kept.
    void use(const std::string& path) CONNECTOR_EXCLUDES(mutex_);

    bool isEnabled() const { return descriptor_ >= 0; }
    /// The future fails with what kept the record from the file.
    connector::Future<std::unique_ptr<connector::ddux::DduxControlResponse>> write(
        const connector::ddux::DduxControlMessage& record) CONNECTOR_EXCLUDES(mutex_);

private:
    std::atomic<int> descriptor_{-1};  // changes under the mutex
    connector::Mutex mutex_;           // keeps lines whole
};

}  // namespace standalone
