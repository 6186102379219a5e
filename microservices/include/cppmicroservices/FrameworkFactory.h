#pragma once

namespace cppmicroservices {

class Framework;

/// Makes frameworks, each independent of the others.
///
/// Threads: any.
class FrameworkFactory {
public:
    /// One that is not started.
    Framework NewFramework();
};

}  // namespace cppmicroservices
