#include "TestClient.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

TestClient::TestClient(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM, 0)), port_(port) {
    const timeval limit{.tv_sec = 10, .tv_usec = 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(socket_);
        throw std::system_error(errno, std::generic_category(), "connect");
    }
}

TestClient::~TestClient() { close(); }

bool TestClient::startTls(int maxVersion) {
    const std::unique_ptr<SSL_CTX, Freed<SSL_CTX_free>> context(SSL_CTX_new(TLS_client_method()));
    SSL_CTX_set_max_proto_version(context.get(), maxVersion);
    SSL_CTX_set_security_level(context.get(), 0);
    tls_.reset(SSL_new(context.get()));
    SSL_set_fd(tls_.get(), socket_);
    return SSL_connect(tls_.get()) == 1;
}

void TestClient::close() {
    if (socket_ >= 0) ::close(socket_);
    socket_ = -1;
}

void TestClient::endSending() { ::shutdown(socket_, SHUT_WR); }

bool TestClient::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = tls_ ? SSL_write(tls_.get(), bytes.data(), static_cast<int>(bytes.size()))
                                   : ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

std::size_t TestClient::sendWhatIsTaken(std::string_view bytes) {
    std::size_t sent = 0;
    pollfd room{.fd = socket_, .events = POLLOUT, .revents = 0};
    while (sent < bytes.size() && ::poll(&room, 1, 500) > 0) {
        const ssize_t count =
            ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno != EAGAIN) break;
        if (count > 0) sent += static_cast<std::size_t>(count);
    }
    return sent;
}

bool TestClient::waitForMore(std::chrono::milliseconds limit) const {
    pollfd more{.fd = socket_, .events = POLLIN, .revents = 0};
    return ::poll(&more, 1, static_cast<int>(limit.count())) > 0;
}

bool TestClient::readMore() {
    std::array<char, 65536> bytes{};
    const ssize_t count = tls_ ? SSL_read(tls_.get(), bytes.data(), static_cast<int>(bytes.size()))
                               : ::recv(socket_, bytes.data(), bytes.size(), 0);
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        throw std::system_error(errno, std::generic_category(), "The server does not answer");
    }
    if (count > 0) received_.append(bytes.data(), static_cast<std::size_t>(count));
    return count > 0;
}

std::string TestClient::takeLine() {
    std::size_t end = 0;
    while ((end = received_.find("\r\n")) == std::string::npos) {
        if (!readMore()) return {};
    }
    std::string line = received_.substr(0, end);
    received_.erase(0, end + 2);
    return line;
}

TestResponse TestClient::receive(bool hasBody) {
    TestResponse response;
    const std::string first = takeLine();
    if (first.size() < 12) return response;
    response.status = std::stoi(first.substr(9, 3));
    for (std::string line = takeLine(); !line.empty(); line = takeLine()) {
        const auto colon = line.find(": ");
        std::string name = line.substr(0, colon);
        std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
        response.headers[name] = line.substr(colon + 2);
    }
    const std::string length = response.header("content-length");
    if (hasBody && !length.empty()) response.body = receiveBytes(std::stoul(length));
    return response;
}

TestResponse TestClient::ask(std::string_view bytes) {
    send(bytes);
    return receive();
}

TestResponse TestClient::get(const std::string& path, const std::string& headers) {
    return ask(head("GET " + path, headers));
}

std::string TestClient::receiveBytes(std::size_t count) {
    while (received_.size() < count && readMore()) continue;
    std::string bytes = received_.substr(0, count);
    received_.erase(0, count);
    return bytes;
}

bool TestClient::isEnded() { return received_.empty() && !readMore(); }

std::string TestClient::head(const std::string& line, const std::string& headers) const {
    return line + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port_) + "\r\n" + headers + "\r\n";
}

std::string TestClient::post(const std::string& path, const std::string& body,
                             const std::string& headers) const {
    const std::string size =
        "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size());
    return head("POST " + path, "Authorization: Bearer " + token + size + "\r\n" + headers) + body;
}
