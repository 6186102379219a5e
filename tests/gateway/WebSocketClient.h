#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "TestClient.h"

inline constexpr char textFrame = 1;
inline constexpr char binaryFrame = 2;
inline constexpr char closeFrame = 8;
inline constexpr char pingFrame = 9;
inline constexpr char pongFrame = 10;

inline std::size_t numberIn(const std::string& bytes) {
    std::size_t number = 0;
    for (const char byte : bytes) number = number * 256 + static_cast<unsigned char>(byte);
    return number;
}

struct Frame {
    int opcode = -1;  ///< -1 when the connection ended
    std::string payload;
    std::size_t closeCode() const { return opcode == closeFrame ? numberIn(payload.substr(0, 2)) : 0; }
};

inline std::string encoded(char opcode, const std::string& payload) {
    const int bits = payload.size() < 126 ? 0 : payload.size() < 65536 ? 16 : 64;
    const std::size_t length = bits == 0 ? payload.size() : bits == 16 ? 126 : 127;
    std::string bytes{static_cast<char>(0x80 | opcode), static_cast<char>(0x80 | length)};
    for (int shift = bits - 8; shift >= 0; shift -= 8) bytes += static_cast<char>(payload.size() >> shift);
    return bytes + std::string(4, '\0') + payload;  // the mask changes nothing
}

/// A connection that has asked for a WebSocket.
class Socket : public TestClient {
public:
    Socket(std::uint16_t port, const std::string& path, const std::string& headers = "")
        : TestClient(port), response(get(path, upgrade + headers)) {}

    Frame receiveFrame() {
        const std::string head = receiveBytes(2);
        if (head.size() < 2) return {};
        std::size_t size = static_cast<unsigned char>(head[1]);
        if (size >= 126) size = numberIn(receiveBytes(size == 126 ? 2 : 8));
        return {head[0] & 15, receiveBytes(size)};
    }
    std::string askFor(const std::string& text) {
        send(encoded(textFrame, text));
        return receiveFrame().payload;
    }
    std::size_t closeCodeAfter(const std::string& bytes) {
        send(bytes);
        return receiveFrame().closeCode();
    }

    const TestResponse response;
};
