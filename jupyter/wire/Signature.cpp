#include "jupyter/wire/Signature.h"

#include <array>
#include <stdexcept>

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/params.h>

namespace jupyter::wire {

namespace {

using Computation = std::unique_ptr<EVP_MAC_CTX, decltype(&EVP_MAC_CTX_free)>;

void require(bool isGood) {
    if (!isGood) throw std::runtime_error("A message cannot be signed: OpenSSL lacks HMAC-SHA256.");
}

const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

// No data is not the same as no key to the library.
Computation keyedWith(std::string_view key) {
    const std::unique_ptr<EVP_MAC, decltype(&EVP_MAC_free)> mac(EVP_MAC_fetch(nullptr, "HMAC", nullptr),
                                                                EVP_MAC_free);
    require(mac != nullptr);
    Computation computation(EVP_MAC_CTX_new(mac.get()), EVP_MAC_CTX_free);
    std::string digest = "SHA256";
    const std::array parameters{
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest.data(), digest.size()),
        OSSL_PARAM_construct_end()};
    require(computation != nullptr &&
            EVP_MAC_init(computation.get(), bytesOf(key), key.size(), parameters.data()) == 1);
    return computation;
}

}  // namespace

Signature::Signature(std::string_view key, std::string_view scheme) {
    if (scheme != "hmac-sha256") throw std::invalid_argument("signature_scheme must be hmac-sha256");
    if (!key.empty()) keyed_ = keyedWith(key);
}

std::string Signature::of(const Message& message) const {
    if (!keyed_) return {};
    const Computation computation(EVP_MAC_CTX_dup(static_cast<const EVP_MAC_CTX*>(keyed_.get())),
                                  EVP_MAC_CTX_free);
    require(computation != nullptr);
    for (const std::string* part : {&message.header, &message.parent, &message.metadata, &message.content}) {
        require(EVP_MAC_update(computation.get(), bytesOf(*part), part->size()) == 1);
    }
    std::array<unsigned char, 32> digest{};
    std::size_t size = 0;
    require(EVP_MAC_final(computation.get(), digest.data(), &size, digest.size()) == 1);
    std::string text;
    for (const unsigned char byte : digest) {
        constexpr std::string_view digits = "0123456789abcdef";
        text.append({digits[byte >> 4], digits[byte & 15]});
    }
    return text;
}

bool Signature::isOf(const Message& message, std::string_view signature) const {
    const std::string expected = of(message);
    if (!keyed_) return true;
    return signature.size() == expected.size() &&
           CRYPTO_memcmp(signature.data(), expected.data(), expected.size()) == 0;
}

}  // namespace jupyter::wire
