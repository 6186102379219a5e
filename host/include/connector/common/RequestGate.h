#pragma once

namespace connector::common {

/// Says whether requests may be evaluated now.
class RequestGate {
public:
    virtual ~RequestGate() = default;
    /// Threads: any.  Blocks: no.
    virtual bool isOpen() = 0;
};

}  // namespace connector::common
