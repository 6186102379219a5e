#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>

#include "jupyter/Executor.h"
#include "log.h"

namespace gateway::jupyter {

/// A strand of an io_context, as a kernel's executor. What a task throws is logged.
class StrandExecutor : public ::jupyter::Executor {
public:
    explicit StrandExecutor(boost::asio::io_context& context) : strand_(boost::asio::make_strand(context)) {}

    void post(std::function<void()> task) override { boost::asio::post(strand_, logged(std::move(task))); }
    void postAfter(std::chrono::milliseconds time, std::function<void()> task) override {
        const auto timer = std::make_shared<boost::asio::steady_timer>(strand_, time);
        timer->async_wait([timer, task = logged(std::move(task))](const auto& error) {
            if (!error) task();
        });
    }

private:
    static std::function<void()> logged(std::function<void()> task) {
        return [task = std::move(task)] {
            try {
                task();
            } catch (const std::exception& error) {
                log().error("Work for a notebook failed: " + std::string(error.what()));
            }
        };
    }

    const boost::asio::strand<boost::asio::io_context::executor_type> strand_;
};

}  // namespace gateway::jupyter
