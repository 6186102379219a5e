#include "bayeux/Strand.h"

#include <exception>
#include <string>
#include <utility>

#include <boost/asio/dispatch.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>

#include "foundation/log/diagnostic_logger.h"

namespace gateway::bayeux {

struct Strand::Impl {
    boost::asio::strand<boost::asio::io_context::executor_type> strand;
};

Strand::Strand(boost::asio::io_context& context)
    : impl_(std::make_shared<const Impl>(Impl{boost::asio::make_strand(context)})) {}

namespace {

auto logged(std::function<void()> work) {
    return [work = std::move(work)] {
        try {
            work();
        } catch (const std::exception& error) {
            foundation::log::DiagnosticLogger("gateway::bayeux")
                .error("Work on a session failed: " + std::string(error.what()));
        }
    };
}

}  // namespace

void Strand::post(std::function<void()> work) const {
    boost::asio::post(impl_->strand, logged(std::move(work)));
}
void Strand::dispatch(std::function<void()> work) const {
    boost::asio::dispatch(impl_->strand, logged(std::move(work)));
}

bool Strand::isCurrent() const { return impl_->strand.running_in_this_thread(); }

}  // namespace gateway::bayeux
