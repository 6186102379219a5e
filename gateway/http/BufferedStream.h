#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/compose.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/bind_handler.hpp>
#include <boost/beast/core/role.hpp>
#include <boost/beast/websocket/teardown.hpp>
#include <boost/system/error_code.hpp>

namespace gateway::http {

/// A stream that reads as much as has come at once, and says when all of it is taken: before the next bytes
/// are waited for. What the frames of one read have led to can then be written together.
///
/// Threads: one at a time.
template <class NextLayer>
class BufferedStream {
public:
    using next_layer_type = NextLayer;
    using executor_type = typename NextLayer::executor_type;
    using error_code = boost::system::error_code;

    explicit BufferedStream(NextLayer next) : next_(std::move(next)) {}

    NextLayer& next_layer() { return next_; }
    const NextLayer& next_layer() const { return next_; }
    executor_type get_executor() { return next_.get_executor(); }

    /// `onEmpty` is called before each wait for bytes.
    void setOnEmpty(std::function<void()> onEmpty) { onEmpty_ = std::move(onEmpty); }
    /// `onWrite` is called before each write, of 64 KiB at most: what was written before it is taken.
    void setOnWrite(std::function<void()> onWrite) { onWrite_ = std::move(onWrite); }

    template <class Buffers, class Handler>
    auto async_read_some(const Buffers& buffers, Handler&& handler) {
        return boost::asio::async_compose<Handler, void(error_code, std::size_t)>(
            [this, buffers, isStarted = false](auto& self, error_code error = {},
                                               std::size_t count = 0) mutable {
                if (std::exchange(isStarted, true)) {
                    if (count > 0) unread_ = {bytes_.get(), count};
                    const std::size_t taken = boost::asio::buffer_copy(buffers, boost::asio::buffer(unread_));
                    unread_.remove_prefix(taken);
                    return self.complete(taken > 0 ? error_code() : error, taken);
                }
                if (unread_.empty() && boost::asio::buffer_size(buffers) > 0) {
                    if (onEmpty_) onEmpty_();
                    return next_.async_read_some(boost::asio::buffer(bytes_.get(), size), std::move(self));
                }
                boost::asio::post(get_executor(),
                                  boost::beast::bind_front_handler(std::move(self), error_code(), 0U));
            },
            handler, next_);
    }
    template <class Buffers, class Handler>
    auto async_write_some(const Buffers& buffers, Handler&& handler) {
        if (onWrite_) onWrite_();
        return next_.async_write_some(buffers, std::forward<Handler>(handler));
    }

    template <class Handler>
    friend void async_teardown(boost::beast::role_type role, BufferedStream& stream, Handler&& handler) {
        using boost::beast::websocket::async_teardown;
        async_teardown(role, stream.next_, std::forward<Handler>(handler));
    }

private:
    static constexpr std::size_t size = std::size_t{64} << 10;

    NextLayer next_;
    std::function<void()> onEmpty_;
    std::function<void()> onWrite_;
    // Not set to zeros, so that an idle connection does not take up the memory.
    std::unique_ptr<char[]> bytes_ = std::make_unique_for_overwrite<char[]>(size);
    std::string_view unread_;  ///< of bytes_
};

}  // namespace gateway::http
