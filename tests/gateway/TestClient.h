#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include <openssl/ssl.h>

/// What a server answered.
struct TestResponse {
    int status = 0;                                ///< 0 when the connection ended first
    std::map<std::string, std::string> headers{};  ///< by name in small letters
    std::string body{};

    std::string header(const std::string& key) const { return headers.contains(key) ? headers.at(key) : ""; }
};

template <auto Free>
struct Freed {
    template <class T>
    void operator()(T* object) const {
        Free(object);
    }
};

/// A connection to a server on this machine, byte by byte. Operations that take longer than ten seconds fail.
class TestClient {
public:
    explicit TestClient(std::uint16_t port);
    /// Goes on over TLS, up to a version of it; false when the server does not.
    bool startTls(int maxVersion = TLS1_3_VERSION);
    /// Whether the server has ended TLS, and not just cut the connection.
    bool isTlsEnded() const { return (SSL_get_shutdown(tls_.get()) & SSL_RECEIVED_SHUTDOWN) != 0; }
    ~TestClient();
    TestClient(const TestClient&) = delete;
    TestClient& operator=(const TestClient&) = delete;

    /// False when the server has ended the connection.
    bool send(std::string_view bytes);
    /// Sends as much as the server takes; it is over when the server takes nothing for half a second.
    /// Returns how much that was.
    std::size_t sendWhatIsTaken(std::string_view bytes);
    /// The next response; `hasBody` is false for one to HEAD.
    TestResponse receive(bool hasBody = true);
    /// The response to a request, which the server may refuse before it has all of it.
    TestResponse ask(std::string_view bytes);
    TestResponse get(const std::string& path, const std::string& headers = "");
    /// The next bytes; fewer when the connection ends first.
    std::string receiveBytes(std::size_t count);
    /// Whether the server ends the connection without sending more.
    bool isEnded();
    /// Whether the server sends something, or ends the connection, within this time.
    bool waitForMore(std::chrono::milliseconds limit) const;
    void close();
    /// Says that nothing more will be sent.
    void endSending();

    /// A request line, the headers that every request needs, and `headers`, each with "\r\n" after it.
    std::string head(const std::string& line, const std::string& headers = "") const;
    /// A whole POST of JSON with the token.
    std::string post(const std::string& path, const std::string& body, const std::string& headers = "") const;

    inline static const std::string token = "a-token-of-the-tests";
    /// The headers that a request for a WebSocket needs as well.
    inline static const std::string upgrade =
        "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
        "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n";

private:
    bool readMore();
    std::string takeLine();

    int socket_;
    const std::uint16_t port_;
    std::string received_;
    std::unique_ptr<SSL, Freed<SSL_free>> tls_;  ///< null without
};
