#include "http/Listener.h"

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/strand.hpp>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <sys/socket.h>
#include <unistd.h>

#include "log.h"

namespace gateway::http {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr auto retryTime = std::chrono::milliseconds(100);
constexpr int mostAtOnce = 32;

// Asio opens and accepts sockets that programs inherit which another thread starts meanwhile.
constexpr int socketFlags = SOCK_CLOEXEC | SOCK_NONBLOCK;

void openAt(tcp::acceptor& acceptor, const tcp::endpoint& endpoint) {
    try {
        const int descriptor = ::socket(endpoint.protocol().family(), SOCK_STREAM | socketFlags, 0);
        if (descriptor < 0) throw boost::system::system_error(errno, boost::system::system_category());
        acceptor.assign(endpoint.protocol(), descriptor);
        acceptor.set_option(tcp::acceptor::reuse_address(true));
        acceptor.bind(endpoint);
        acceptor.listen();
    } catch (const boost::system::system_error& error) {
        throw std::runtime_error("Cannot listen on " + endpoint.address().to_string() + ", port " +
                                 std::to_string(endpoint.port()) + ": " + error.code().message());
    }
}

// Of errors of the system, which OpenSSL wraps, Asio knows no text.
std::string reasonOf(const error_code& error) {
    const auto code = static_cast<unsigned>(error.value());
    if (!ERR_SYSTEM_ERROR(code)) return error.message();
    return std::generic_category().message(ERR_GET_REASON(code));
}

// A client that vanishes without a word is noticed while its request runs, too.
void setOptions(int descriptor) {
    const auto set = [descriptor](int level, int name, int value) {
        ::setsockopt(descriptor, level, name, &value, sizeof value);
    };
    set(IPPROTO_TCP, TCP_NODELAY, 1);
    // What the system takes ahead of what is sent: not so much that a slow client would seem to take nothing
    // for long and then all at once.
    set(IPPROTO_TCP, TCP_NOTSENT_LOWAT, 64 << 10);
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, 60);
    set(IPPROTO_TCP, TCP_KEEPINTVL, 15);
    set(IPPROTO_TCP, TCP_KEEPCNT, 4);
}

}  // namespace

std::shared_ptr<asio::ssl::context> makeTlsContext(const std::filesystem::path& certificate,
                                                   const std::filesystem::path& key) {
    auto context = std::make_shared<asio::ssl::context>(asio::ssl::context::tls_server);
    SSL_CTX_set_min_proto_version(context->native_handle(), TLS1_2_VERSION);
    // Where nobody answers, OpenSSL would ask at the terminal.
    context->set_password_callback([](auto, auto) { return std::string(); });
    const auto use = [](const std::filesystem::path& file, const char* option, const char* what,
                        const auto& action) {
        error_code error;
        action(error);
        if (!error) return;
        throw std::invalid_argument(std::string(option) + ": " + file.string() + " cannot be used as a " +
                                    what + " in PEM: " + reasonOf(error));
    };
    use(certificate, "--tls-cert", "certificate",
        [&](error_code& error) { context->use_certificate_chain_file(certificate.string(), error); });
    use(key, "--tls-key", "key", [&](error_code& error) {
        context->use_private_key_file(key.string(), asio::ssl::context::pem, error);
    });
    return context;
}

Listener::Listener(asio::io_context& context, const asio::ip::address& address, std::uint16_t port)
    : context_(context),
      protocol_(tcp::endpoint(address, port).protocol()),
      acceptor_(asio::make_strand(context)),
      retry_(acceptor_.get_executor()) {
    openAt(acceptor_, tcp::endpoint(address, port));
    port_ = acceptor_.local_endpoint().port();
}

Listener::~Listener() = default;

void Listener::start(Accept accept) {
    accept_ = std::move(accept);
    asio::post(acceptor_.get_executor(), [this] { awaitConnections(); });
}

void Listener::close() {
    asio::post(acceptor_.get_executor(), [this] {
        // A forked process may hold the socket, too, but then it listens no more.
        if (acceptor_.is_open()) ::shutdown(acceptor_.native_handle(), SHUT_RDWR);
        error_code ignored;
        acceptor_.close(ignored);
        retry_.cancel();
    });
}

void Listener::awaitConnections() {
    if (!acceptor_.is_open()) return;
    acceptor_.async_wait(tcp::acceptor::wait_read, [this](const error_code&) { acceptThem(); });
}

void Listener::acceptThem() {
    for (int i = 0; i < mostAtOnce && acceptor_.is_open(); ++i) {
        const int descriptor = ::accept4(acceptor_.native_handle(), nullptr, nullptr, socketFlags);
        if (descriptor >= 0) {
            take(descriptor);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            break;
        } else if (errno != EINTR && errno != ECONNABORTED) {
            return retryLater(errno);
        }
    }
    awaitConnections();
}

void Listener::take(int descriptor) {
    setOptions(descriptor);
    tcp::socket socket(asio::make_strand(context_));
    error_code error;
    socket.assign(protocol_, descriptor, error);
    try {
        if (error) {
            ::close(descriptor);
            throw boost::system::system_error(error);
        }
        accept_(std::move(socket));
    } catch (const std::exception& problem) {
        log().error("A connection cannot be served: " + std::string(problem.what()));
    }
}

// As a rule there are too many open files; it gets better with time only.
void Listener::retryLater(int problem) {
    log().warning("A connection cannot be accepted: " + std::generic_category().message(problem));
    retry_.expires_after(retryTime);
    retry_.async_wait([this](const error_code&) { awaitConnections(); });
}

}  // namespace gateway::http
