#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <arpa/inet.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include "GatewayFixture.h"

namespace {

namespace fs = std::filesystem;

template <auto Free>
struct Freed {
    template <class T>
    void operator()(T* object) const {
        Free(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freed<X509_free>>;
using File = std::unique_ptr<std::FILE, Freed<std::fclose>>;

/// A gateway with a certificate of its own, made for the test.
class TlsTest : public GatewayFixture {
protected:
    TlsTest() {
        std::string pattern = testing::TempDir() + "numora-tls-XXXXXX";
        folder_ = ::mkdtemp(pattern.data());
        const Key key(EVP_EC_gen("P-256"));
        const Certificate certificate(X509_new());
        X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -60);
        X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
        X509_set_pubkey(certificate.get(), key.get());
        X509_sign(certificate.get(), key.get(), EVP_sha256());
        PEM_write_X509(File(std::fopen((folder_ / "cert").c_str(), "w")).get(), certificate.get());
        PEM_write_PrivateKey(File(std::fopen((folder_ / "key").c_str(), "w")).get(), key.get(), nullptr,
                             nullptr, 0, nullptr, nullptr);
        gateway::GatewayOptions options;
        options.tlsCertificate = folder_ / "cert";
        options.tlsKey = folder_ / "key";
        start(std::move(options));
    }
    ~TlsTest() override { fs::remove_all(folder_); }

    fs::path folder_;
};

/// The client's end of a TLS connection.
class TlsClient {
public:
    explicit TlsClient(std::uint16_t port, int maxVersion = TLS1_3_VERSION)
        : context_(SSL_CTX_new(TLS_client_method())) {
        SSL_CTX_set_max_proto_version(context_.get(), maxVersion);
        SSL_CTX_set_security_level(context_.get(), 0);
        bio_.reset(BIO_new_ssl_connect(context_.get()));
        BIO_set_conn_hostname(bio_.get(), ("127.0.0.1:" + std::to_string(port)).c_str());
    }
    bool shakeHands() { return BIO_do_handshake(bio_.get()) == 1; }
    void send(const std::string& text) { BIO_write(bio_.get(), text.data(), static_cast<int>(text.size())); }
    /// What comes until `end` is there, or the connection ends.
    std::string receive(const std::string& end) {
        std::string text;
        char bytes[4096];
        while (text.find(end) == std::string::npos) {
            const int count = BIO_read(bio_.get(), bytes, sizeof bytes);
            if (count <= 0) break;
            text.append(bytes, static_cast<std::size_t>(count));
        }
        return text;
    }
    /// Whether the connection has ended as TLS has it, and was not cut.
    bool isEndedProperly() {
        SSL* tls = nullptr;
        BIO_get_ssl(bio_.get(), &tls);
        return receive("?").empty() && (SSL_get_shutdown(tls) & SSL_RECEIVED_SHUTDOWN) != 0;
    }

private:
    std::unique_ptr<SSL_CTX, Freed<SSL_CTX_free>> context_;
    std::unique_ptr<BIO, Freed<BIO_free_all>> bio_;
};

TEST_F(TlsTest, servesRequestsAndWebSockets) {
    EXPECT_EQ(gateway_->url(), "https://127.0.0.1:" + std::to_string(gateway_->port()) + "/");
    const std::string host = "Host: 127.0.0.1:" + std::to_string(gateway_->port()) + "\r\n";
    const std::string token(TestClient::token);
    TlsClient client(gateway_->port());
    ASSERT_TRUE(client.shakeHands());
    client.send("GET /healthz HTTP/1.1\r\n" + host + "\r\n");
    EXPECT_TRUE(client.receive("}").ends_with("{\"status\":\"ok\"}"));
    client.send("GET /?token=" + token + " HTTP/1.1\r\nConnection: close\r\n" + host + "\r\n");
    EXPECT_NE(client.receive("</html>").find("; Secure"), std::string::npos);
    client.receive("</html>");
    EXPECT_TRUE(client.isEndedProperly());

    TlsClient socket(gateway_->port());
    ASSERT_TRUE(socket.shakeHands());
    socket.send("GET /cometd HTTP/1.1\r\n" + host +
                "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nOrigin: https://localhost:" +
                std::to_string(gateway_->port()) + "\r\n\r\n");
    EXPECT_TRUE(socket.receive("\r\n\r\n").starts_with("HTTP/1.1 101"));
    socket.send(std::string("\x81\x82\0\0\0\0[]", 8));
    EXPECT_EQ(socket.receive("[]"), std::string("\x81\x02[]"));
}

TEST_F(TlsTest, refusesOldVersionsAndPlainRequests) {
    EXPECT_FALSE(TlsClient(gateway_->port(), TLS1_1_VERSION).shakeHands());
    auto plain = connect();
    plain.send(plain.head("GET /healthz"));
    EXPECT_EQ(plain.receive().status, 0);
    TlsClient good(gateway_->port());
    EXPECT_TRUE(good.shakeHands());
}

}  // namespace
