#pragma once

#include <functional>
#include <memory>

namespace boost::asio {
class io_context;
}

namespace gateway::bayeux {

/// Runs pieces of work on threads of an io_context: one at a time, in the order in which they were posted.
///
/// Threads: any.
class Strand {
public:
    explicit Strand(boost::asio::io_context& context);

    /// What `work` throws is logged.  Blocks: never.
    void post(std::function<void()> work) const;
    /// The same; runs it before it returns where that is possible.
    void dispatch(std::function<void()> work) const;
    /// Whether this thread is inside a piece of work.
    bool isCurrent() const;

private:
    struct Impl;
    const std::shared_ptr<const Impl> impl_;
};

}  // namespace gateway::bayeux
