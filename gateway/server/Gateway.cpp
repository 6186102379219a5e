#include "gateway/Gateway.h"

#include <filesystem>
#include <stdexcept>
#include <utility>

#include "access/token.h"
#include "http/Listener.h"
#include "http/addresses.h"
#include "log.h"
#include "server/Server.h"
#include "server/checkOptions.h"

namespace gateway {

class Gateway::Impl {
public:
    Impl(messages::LocalMessageService& messages, std::shared_ptr<connector::ServiceFramework> framework,
         std::shared_ptr<connector::json::JsonSerializer> serializer, std::function<bool()> isReady,
         GatewayOptions options)
        : options_(std::move(options)),
          hasChosenToken_(!options_.token.empty()),
          parts_{messages, std::move(framework), std::move(serializer), std::move(isReady), options_} {
        checkOptions(options_);
        if (!hasChosenToken_) options_.token = access::makeToken();
        const std::string problem = access::tokenProblem(options_.token);
        if (!problem.empty()) throw std::invalid_argument(problem);
        if (options_.tlsCertificate.empty() != options_.tlsKey.empty()) {
            throw std::invalid_argument("tls_cert and tls_key must be given together.");
        }
        if (!options_.console.empty() && !std::filesystem::is_directory(options_.console)) {
            throw std::invalid_argument("The console folder " + options_.console.string() +
                                        " does not exist.");
        }
    }

    void start() {
        const auto address = http::addressOf(options_.host);
        if (!address.is_loopback() && !hasChosenToken_) {
            throw std::invalid_argument("Listening on " + options_.host +
                                        ", which other machines can reach, needs a token that you choose.");
        }
        if (!address.is_loopback() && options_.tlsCertificate.empty() && options_.trustedProxies.empty()) {
            log().warning(
                "Listening on " + options_.host +
                " without TLS: others on the network can read the token and all code. Give a certificate "
                "(--tls-cert, --tls-key), or a proxy that has one (--trust-proxy).");
        }
        server_ = std::make_unique<Server>(parts_, address);
        server_->startInterpreter();
        url_ = std::string(options_.tlsCertificate.empty() ? "http://" : "https://") +
               http::addressText(http::reachableAddress(address)) + ":" + std::to_string(server_->port()) +
               options_.basePath + "/";
    }

    void reload(const ReloadableOptions& options) {
        if (options.token.empty() && hasChosenToken_) {
            throw std::invalid_argument("token must stay set, as it was when the server started.");
        }
        const std::string token = options.token.empty() ? options_.token : options.token;
        const std::string problem = access::tokenProblem(token);
        if (!problem.empty()) throw std::invalid_argument(problem);
        const bool hasTls = !options_.tlsCertificate.empty();
        if (options.tlsCertificate.empty() == hasTls || options.tlsKey.empty() == hasTls) {
            throw std::invalid_argument(
                hasTls ? "tls_cert and tls_key must stay set, as they were when the server started."
                       : "tls_cert and tls_key must be set when the server starts.");
        }
        server_->reload(token, options.tokens,
                        hasTls ? http::makeTlsContext(options.tlsCertificate, options.tlsKey) : nullptr);
    }

    std::uint16_t port() const { return server_ ? server_->port() : options_.port; }
    const std::string& token() const { return options_.token; }
    const std::string& url() const { return url_; }
    void stop() {
        if (server_) server_->stop();
    }

private:
    GatewayOptions options_;
    const bool hasChosenToken_;
    const Server::Parts parts_;
    std::string url_;
    std::unique_ptr<Server> server_;
};

Gateway::Gateway(messages::LocalMessageService& messages,
                 std::shared_ptr<connector::ServiceFramework> framework,
                 std::shared_ptr<connector::json::JsonSerializer> serializer, std::function<bool()> isReady,
                 GatewayOptions options)
    : impl_(std::make_unique<Impl>(messages, std::move(framework), std::move(serializer), std::move(isReady),
                                   std::move(options))) {}

Gateway::~Gateway() = default;

void Gateway::start() { impl_->start(); }
std::uint16_t Gateway::port() const { return impl_->port(); }
const std::string& Gateway::token() const { return impl_->token(); }
std::string Gateway::url() const { return impl_->url(); }
void Gateway::reload(const ReloadableOptions& options) { impl_->reload(options); }
void Gateway::stop() { impl_->stop(); }

}  // namespace gateway
