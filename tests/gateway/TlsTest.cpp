#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include "GatewayFixture.h"
#include "support/threads.h"

namespace {

namespace fs = std::filesystem;

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
        start({.tlsCertificate = folder_ / "cert", .tlsKey = folder_ / "key"});
    }
    ~TlsTest() override { fs::remove_all(folder_); }

    fs::path folder_;
};

TEST_F(TlsTest, servesRequestsAndWebSockets) {
    EXPECT_EQ(gateway_->url(), "https://127.0.0.1:" + std::to_string(gateway_->port()) + "/");
    auto client = connect();
    ASSERT_TRUE(client.startTls());
    EXPECT_EQ(client.get("/healthz").body, R"({"status":"ok"})");
    const auto visit = client.get("/?token=" + TestClient::token, "Connection: close\r\n");
    EXPECT_TRUE(visit.header("set-cookie").ends_with("; Secure"));
    EXPECT_TRUE(client.isEnded());
    EXPECT_TRUE(client.isTlsEnded());

    auto socket = connect();
    ASSERT_TRUE(socket.startTls());
    const auto origin = "Origin: https://localhost:" + std::to_string(gateway_->port()) + "\r\n";
    EXPECT_EQ(socket.get("/cometd", TestClient::upgrade + origin).status, 101);
    socket.send(std::string("\x81\x82\0\0\0\0[]", 8));
    EXPECT_EQ(socket.receiveBytes(4), std::string("\x81\x02[]"));
}

TEST_F(TlsTest, reloadsWhileConnectionsBegin) {
    std::atomic<bool> isOver{false};
    std::jthread others([&] {
        onThreads(2, [&](int) {
            do {
                auto client = connect();
                EXPECT_TRUE(client.startTls());
                EXPECT_EQ(client.get("/readyz", "Authorization: Bearer " + TestClient::token + "\r\n").status,
                          200);
            } while (!isOver);
        });
    });
    gateway::ReloadableOptions options{
        .token = TestClient::token, .tlsCertificate = folder_ / "cert", .tlsKey = folder_ / "key"};
    for (int i = 0; i < 50; ++i) {
        options.tokens.assign(static_cast<std::size_t>(i % 2), {std::string(64, '0'), {"*"}, {"use"}});
        gateway_->reload(options);
    }
    isOver = true;
    options.tlsKey = folder_ / "cert";
    EXPECT_THROW(gateway_->reload(options), std::invalid_argument);
}

TEST_F(TlsTest, refusesOldVersionsAndPlainRequests) {
    EXPECT_FALSE(connect().startTls(TLS1_1_VERSION));
    EXPECT_EQ(connect().get("/healthz").status, 0);
    EXPECT_TRUE(connect().startTls());
}

}  // namespace
