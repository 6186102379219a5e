#pragma once

namespace connector::shadow_files::v1 {

/// Keeps copies of the files that a client edits, where the interpreter can read them.
class ShadowService {
public:
    virtual ~ShadowService() = default;
    /// Whether the copies are in place, so that code may run.  Threads: any.
    virtual bool isReady() const = 0;
};

}  // namespace connector::shadow_files::v1
