#include "http/Listener.h"

#include <chrono>
#include <stdexcept>
#include <utility>

#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/strand.hpp>

#include "log.h"

namespace gateway::http {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr auto retryTime = std::chrono::milliseconds(100);

void openAt(tcp::acceptor& acceptor, const tcp::endpoint& endpoint) {
    try {
        acceptor.open(endpoint.protocol());
        acceptor.set_option(tcp::acceptor::reuse_address(true));
        acceptor.bind(endpoint);
        acceptor.listen();
    } catch (const boost::system::system_error& error) {
        throw std::runtime_error("Cannot listen on " + endpoint.address().to_string() + ", port " +
                                 std::to_string(endpoint.port()) + ": " + error.code().message());
    }
}

}  // namespace

std::shared_ptr<asio::ssl::context> makeTlsContext(const std::filesystem::path& certificate,
                                                   const std::filesystem::path& key) {
    auto context = std::make_shared<asio::ssl::context>(asio::ssl::context::tls_server);
    SSL_CTX_set_min_proto_version(context->native_handle(), TLS1_2_VERSION);
    // Where nobody answers, OpenSSL would ask at the terminal.
    context->set_password_callback([](auto, auto) { return std::string(); });
    const auto use = [](const std::filesystem::path& file, const auto& action) {
        error_code error;
        action(error);
        if (error) throw std::runtime_error("Cannot use " + file.string() + ": " + error.message());
    };
    use(certificate,
        [&](error_code& error) { context->use_certificate_chain_file(certificate.string(), error); });
    use(key, [&](error_code& error) {
        context->use_private_key_file(key.string(), asio::ssl::context::pem, error);
    });
    return context;
}

Listener::Listener(asio::io_context& context, const asio::ip::address& address, std::uint16_t port)
    : context_(context), acceptor_(asio::make_strand(context)), retry_(acceptor_.get_executor()) {
    openAt(acceptor_, tcp::endpoint(address, port));
    port_ = acceptor_.local_endpoint().port();
}

Listener::~Listener() = default;

void Listener::start(Accept accept) {
    accept_ = std::move(accept);
    asio::post(acceptor_.get_executor(), [this] { this->accept(); });
}

void Listener::close() {
    asio::post(acceptor_.get_executor(), [this] {
        error_code ignored;
        acceptor_.close(ignored);
        retry_.cancel();
    });
}

void Listener::accept() {
    if (!acceptor_.is_open()) return;
    const asio::any_io_executor strand = asio::make_strand(context_);
    acceptor_.async_accept(strand, [this](const error_code& error, tcp::socket socket) {
        onAccepted(error, std::move(socket));
    });
}

void Listener::onAccepted(const error_code& error, tcp::socket socket) {
    if (!acceptor_.is_open()) return;
    if (error) {
        // As a rule there are too many open files; it gets better with time only.
        log().warning("A connection cannot be accepted: " + error.message());
        retry_.expires_after(retryTime);
        retry_.async_wait([this](const error_code&) { accept(); });
        return;
    }
    error_code ignored;
    socket.set_option(tcp::no_delay(true), ignored);
    try {
        accept_(std::move(socket));
    } catch (const std::exception& problem) {
        log().error("A connection cannot be served: " + std::string(problem.what()));
    }
    accept();
}

}  // namespace gateway::http
