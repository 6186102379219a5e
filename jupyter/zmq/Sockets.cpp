#include "zmq/Sockets.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace jupyter {

namespace {

constexpr int lingerMs = 1000;
constexpr std::int64_t largestMessage = std::int64_t{256} << 20;
constexpr int repliesPerClient = 10'000;
// At the pace of the queue a reader may stand still for a quarter of a second.
constexpr int messagesPerSubscriber = 2'000;
constexpr int heartbeatsAtOnce = 16;

std::string tcpAddress(const std::string& ip, int port) {
    const bool isV6 = ip.find(':') != std::string::npos && !ip.starts_with('[');
    return "tcp://" + (isV6 ? "[" + ip + "]" : ip) + ":" + (port == 0 ? "*" : std::to_string(port));
}

std::string ipcPath(const std::string& beginning, int port) { return beginning + "-" + std::to_string(port); }

// Binding a path takes it away from whoever has it.
int freeIpcPort(const std::string& beginning) {
    int port = 1;
    while (std::filesystem::exists(ipcPath(beginning, port))) ++port;
    return port;
}

int portIn(const std::string& endpoint) { return std::stoi(endpoint.substr(endpoint.rfind(':') + 1)); }

std::optional<std::vector<std::string>> receiveFrames(zmq::socket_t& socket) {
    std::vector<std::string> frames;
    zmq::message_t part;
    do {
        if (!socket.recv(part, zmq::recv_flags::dontwait)) return std::nullopt;
        frames.emplace_back(part.to_string());
    } while (part.more());
    return frames;
}

// The parts after the first never have to wait.
bool sendFrames(zmq::socket_t& socket, const std::vector<std::string>& frames) {
    for (std::size_t i = 0; i < frames.size(); ++i) {
        auto flags = zmq::send_flags::dontwait;
        if (i + 1 < frames.size()) flags = flags | zmq::send_flags::sndmore;
        if (!socket.send(zmq::buffer(frames[i]), flags)) return false;
    }
    return true;
}

}  // namespace

Sockets::Sockets(ConnectionFile file)
    : file_(std::move(file)), frames_(wire::Signature(file_.key, file_.signatureScheme)) {
    heartbeat_ = bind(zmq::socket_type::router, file_.heartbeatPort);
    shell_ = bind(zmq::socket_type::router, file_.shellPort);
    control_ = bind(zmq::socket_type::router, file_.controlPort);
    stdin_ = bind(zmq::socket_type::router, file_.stdinPort);
    iopub_ = bind(zmq::socket_type::xpub, file_.iopubPort);
}

zmq::socket_t Sockets::bind(zmq::socket_type type, int& port) {
    zmq::socket_t socket(context_, type);
    socket.set(zmq::sockopt::linger, lingerMs);
    socket.set(zmq::sockopt::maxmsgsize, largestMessage);
    socket.set(zmq::sockopt::ipv6, file_.ip.find(':') != std::string::npos);
    if (type == zmq::socket_type::xpub) {
        socket.set(zmq::sockopt::xpub_verbose, true);
        socket.set(zmq::sockopt::xpub_nodrop, true);
        socket.set(zmq::sockopt::sndhwm, messagesPerSubscriber);
    } else {
        socket.set(zmq::sockopt::router_handover, true);
        socket.set(zmq::sockopt::sndhwm, repliesPerClient);
    }
    const bool isIpc = file_.transport == "ipc";
    if (isIpc && port == 0) port = freeIpcPort(file_.ip);
    const std::string address = isIpc ? "ipc://" + ipcPath(file_.ip, port) : tcpAddress(file_.ip, port);
    try {
        socket.bind(address);
    } catch (const zmq::error_t& error) {
        throw std::runtime_error("cannot listen on " + address + ": " + error.what());
    }
    if (!isIpc) port = portIn(socket.get(zmq::sockopt::last_endpoint));
    return socket;
}

zmq::socket_t& Sockets::socketOf(Channel channel) {
    switch (channel) {
        case Channel::Shell:
            return shell_;
        case Channel::Control:
            return control_;
        case Channel::Stdin:
            return stdin_;
        default:
            return iopub_;
    }
}

void Sockets::poll(int descriptor, std::chrono::milliseconds limit) {
    std::array<zmq::pollitem_t, 6> items{{{nullptr, descriptor, ZMQ_POLLIN, 0},
                                          {heartbeat_.handle(), 0, ZMQ_POLLIN, 0},
                                          {control_.handle(), 0, ZMQ_POLLIN, 0},
                                          {shell_.handle(), 0, ZMQ_POLLIN, 0},
                                          {stdin_.handle(), 0, ZMQ_POLLIN, 0},
                                          {iopub_.handle(), 0, ZMQ_POLLIN, 0}}};
    try {
        zmq::poll(items.data(), items.size(), limit);
    } catch (const zmq::error_t& error) {
        if (error.num() != EINTR) throw;
    }
}

void Sockets::echo() {
    for (int i = 0; i < heartbeatsAtOnce; ++i) {
        const auto frames = receiveFrames(heartbeat_);
        if (!frames) return;
        sendFrames(heartbeat_, *frames);
    }
}

std::optional<Message> Sockets::receive(Channel channel) {
    constexpr int droppedAtOnce = 100;
    for (int i = 0; i < droppedAtOnce; ++i) {
        auto frames = receiveFrames(socketOf(channel));
        if (!frames) return std::nullopt;
        if (auto message = frames_.decode(channel, std::move(*frames))) return message;
    }
    return std::nullopt;
}

bool Sockets::takeSubscriptions() {
    bool isAny = false;
    while (const auto frames = receiveFrames(iopub_)) isAny = isAny || frames->at(0).starts_with('\1');
    return isAny;
}

bool Sockets::write(zmq::socket_t& socket, const Message& message) {
    return sendFrames(socket, frames_.encode(message));
}

void Sockets::send(const Message& message) { write(socketOf(message.channel), message); }

bool Sockets::trySend(const Message& message) { return write(iopub_, message); }

void Sockets::setLossless(bool isLossless) { iopub_.set(zmq::sockopt::xpub_nodrop, isLossless); }

void Sockets::close() {
    for (auto* socket : {&heartbeat_, &shell_, &control_, &stdin_, &iopub_}) socket->close();
    context_.close();
}

}  // namespace jupyter
