#include "jupyter/KernelSocket.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "jupyter/KernelRoom.h"
#include "jupyter/OutgoingMessage.h"
#include "jupyter/wire/WebSocket.h"
#include "log.h"

namespace gateway::jupyter {

namespace {

constexpr std::size_t mostUnsent = std::size_t{1} << 20;
constexpr std::size_t mostUnhandled = std::size_t{64} << 20;
constexpr std::uint16_t invalidData = 1007;
constexpr std::uint16_t policyViolation = 1008;

}  // namespace

KernelSocket::KernelSocket(std::shared_ptr<KernelRoom> room, Peer peer, std::size_t frameBytes)
    : room_(std::move(room)), peer_(std::move(peer)), frameBytes_(frameBytes) {}

KernelSocket::~KernelSocket() = default;

// Clients that get another one than they know give the kernel up.
std::string KernelSocket::chosen(const std::vector<std::string_view>& offered) {
    isV1_ = std::ranges::find(offered, ::jupyter::wire::webSocketV1) != offered.end();
    return isV1_ ? std::string(::jupyter::wire::webSocketV1) : "";
}

void KernelSocket::opened(const std::shared_ptr<sockets::FrameSocket>& socket) {
    socket_ = socket;
    room_->post([self = shared_from_this()](KernelRoom& room) { room.join(self); });
}

void KernelSocket::received(std::string data, bool isText) {
    const auto size = data.size();
    if ((unhandledBytes_ += size) > mostUnhandled) return close(policyViolation);
    ::jupyter::Message message;
    try {
        if (isV1_ && isText) throw std::invalid_argument("The subprotocol knows binary messages only.");
        message = isV1_ ? ::jupyter::wire::decodeV1(data) : ::jupyter::wire::decodeDefault(data, isText);
        if (message.channel == ::jupyter::Channel::Iopub) {
            throw std::invalid_argument("channel must not be iopub.");
        }
    } catch (const std::invalid_argument& problem) {
        log().debug("A notebook client sent what is no message: " + std::string(problem.what()));
        return close(invalidData);
    }
    room_->post([self = shared_from_this(), size, message = std::move(message)](KernelRoom& room) mutable {
        self->unhandledBytes_ -= size;
        room.receive(*self, std::move(message));
    });
}

void KernelSocket::drained() {
    if (!isRoomWanted_.exchange(false)) return;
    room_->post([self = shared_from_this()](KernelRoom& room) { room.goOn(*self); });
}

void KernelSocket::closed() {
    room_->post([self = shared_from_this()](KernelRoom& room) { room.leave(*self); });
}

std::size_t KernelSocket::unsentBytes() const {
    const auto socket = socket_.lock();
    return socket ? socket->unsentBytes() : 0;
}

bool KernelSocket::hasRoom() {
    if (unsentBytes() < mostUnsent) return true;
    isRoomWanted_ = true;
    return unsentBytes() < mostUnsent;  // it may have been written in between
}

void KernelSocket::send(OutgoingMessage& message) {
    if (const auto socket = socket_.lock()) socket->send(message.frame(isV1_));
}

void KernelSocket::close(std::uint16_t code) {
    if (const auto socket = socket_.lock()) socket->close(code);
}

}  // namespace gateway::jupyter
