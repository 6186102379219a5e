#include "connector/identifiers.h"

#include <cerrno>
#include <system_error>

#include <sys/random.h>

namespace connector {

namespace {

std::string randomBytes(std::size_t count) {
    std::string bytes(count, '\0');
    // A request of 256 bytes or fewer is served in full or not at all.
    while (getrandom(bytes.data(), bytes.size(), 0) < 0) {
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "No random bits");
    }
    return bytes;
}

}  // namespace

std::string randomIdentifier() { return hexadecimal(randomBytes(20)); }

std::string randomUuid() {
    std::string text = hexadecimal(randomBytes(16));
    text[12] = '4';                                                // the version: random
    text[16] = "89ab"[static_cast<unsigned char>(text[16]) % 4U];  // the variant
    for (const std::size_t at : {20U, 16U, 12U, 8U}) text.insert(at, 1, '-');
    return text;
}

std::string hexadecimal(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text.push_back(digits[value >> 4U]);
        text.push_back(digits[value & 15U]);
    }
    return text;
}

}  // namespace connector
