#include "LinkSocket.h"

#include <array>
#include <cerrno>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "link/Frame.h"

namespace worker {

namespace {

constexpr std::size_t bufferBytes = std::size_t{256} << 10;

}  // namespace

LinkSocket::LinkSocket(int descriptor) : descriptor_(descriptor), buffer_(new char[bufferBytes]) {
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0) return;  // reading will say so
    device_ = status.st_dev;
    inode_ = status.st_ino;
}

bool LinkSocket::isSame() const {
    struct stat status {};
    return ::fstat(descriptor_, &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

bool LinkSocket::isPeerGone() const {
    pollfd ended{descriptor_, POLLIN, 0};
    return isSame() && ::poll(&ended, 1, 0) > 0 && (ended.revents & POLLHUP) != 0;
}

std::string_view LinkSocket::read(int stopEvent) {
    for (;;) {
        std::array<pollfd, 2> ready{{{descriptor_, POLLIN, 0}, {stopEvent, POLLIN, 0}}};
        if (::poll(ready.data(), ready.size(), -1) < 0) {
            if (errno == EINTR) continue;
            throw links::BadFrame("the link cannot be waited for");
        }
        if (!isSame() || (ready[1].revents & POLLNVAL) != 0) {
            throw links::BadFrame("a descriptor of the link was closed");
        }
        if (ready[1].revents != 0) return {};
        const ssize_t count = ::recv(descriptor_, buffer_.get(), bufferBytes, MSG_DONTWAIT);
        if (count > 0) return {buffer_.get(), static_cast<std::size_t>(count)};
        if (count == 0) throw links::BadFrame("the gateway has closed the link");
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
            throw links::BadFrame("the link is broken");
    }
}

}  // namespace worker
