#include "access/token.h"

#include <algorithm>

#include <openssl/crypto.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include "connector/identifiers.h"

namespace gateway::access {

namespace {

constexpr std::size_t shortest = 16;
constexpr std::size_t longest = 512;

bool isUnreserved(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

}  // namespace

std::string makeToken() { return connector::randomIdentifier(); }

std::string tokenProblem(std::string_view token) {
    if (token.size() < shortest || token.size() > longest || !std::ranges::all_of(token, isUnreserved)) {
        return "The token must consist of " + std::to_string(shortest) + " to " + std::to_string(longest) +
               " letters, digits and -._~.";
    }
    return {};
}

std::string derivedKey(std::string_view secret, std::string_view purpose) {
    std::string key(EVP_MAX_MD_SIZE, '\0');
    unsigned size = 0;
    HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()),
         reinterpret_cast<const unsigned char*>(purpose.data()), purpose.size(),
         reinterpret_cast<unsigned char*>(key.data()), &size);
    key.resize(size);
    return connector::hexadecimal(key);
}

std::string digestOf(std::string_view text) {
    std::string digest(SHA256_DIGEST_LENGTH, '\0');
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(),
           reinterpret_cast<unsigned char*>(digest.data()));
    return connector::hexadecimal(digest);
}

bool isSameSecret(std::string_view one, std::string_view other) noexcept {
    return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

}  // namespace gateway::access
