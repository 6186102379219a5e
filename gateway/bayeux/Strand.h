#pragma once

#include <exception>
#include <functional>
#include <string>
#include <utility>

#include <boost/asio/dispatch.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>

#include "foundation/log/diagnostic_logger.h"

namespace gateway::bayeux {

/// Runs pieces of work on threads of an io_context: one at a time, in the order in which they come. What a
/// piece throws is logged.
///
/// Threads: any.
class Strand {
    static auto logged(std::function<void()> work) {
        return [work = std::move(work)] {
            try {
                work();
            } catch (const std::exception& error) {
                foundation::log::DiagnosticLogger("gateway::bayeux")
                    .error("Work on a session failed: " + std::string(error.what()));
            }
        };
    }

public:
    explicit Strand(boost::asio::io_context& context) : strand_(boost::asio::make_strand(context)) {}

    /// Runs `work` later.  Blocks: never.
    void post(std::function<void()> work) const { boost::asio::post(strand_, logged(std::move(work))); }
    /// Runs `work` before it returns on a thread of the io_context while the strand is free, else later.
    void dispatch(std::function<void()> work) const {
        boost::asio::dispatch(strand_, logged(std::move(work)));
    }
    /// Whether this thread is inside a piece of work.
    bool isCurrent() const { return strand_.running_in_this_thread(); }

private:
    const boost::asio::strand<boost::asio::io_context::executor_type> strand_;
};

}  // namespace gateway::bayeux
