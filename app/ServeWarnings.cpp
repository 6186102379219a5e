#include "ServeWarnings.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/log/diagnostic_logger.h"

namespace app {

namespace {

const foundation::log::DiagnosticLogger& log() {
    static const foundation::log::DiagnosticLogger instance("numora::serve");
    return instance;
}

// The group of a file that is another user's is how the server gets at it.
void warnOfSecret(const std::string& what, const std::string& file) {
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0) return;
    const bool isOwn = status.st_uid == ::geteuid();
    if ((status.st_mode & (isOwn ? S_IRWXG | S_IRWXO : S_IRWXO)) == 0) return;
    log().warning(file + ", which holds " + what + ", can be read by other users: its mode must be " +
                  (isOwn ? "600." : "640."));
}

// That it can be used at all is for the gateway to say. A pipe is read once, by the gateway.
void warnOfExpiry(const std::string& file) {
    std::error_code unknown;
    if (!std::filesystem::is_regular_file(file, unknown)) return;
    const std::unique_ptr<BIO, decltype(&BIO_free)> text(BIO_new_file(file.c_str(), "r"), BIO_free);
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(
        text ? PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr) : nullptr, X509_free);
    ERR_clear_error();
    constexpr auto notice = std::chrono::hours(24 * 14);
    auto soon = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now() + notice);
    if (!certificate || X509_cmp_time(X509_get0_notAfter(certificate.get()), &soon) > 0) return;
    log().warning("The certificate in " + file + " has expired, or does so within 14 days.");
}

}  // namespace

void warnOfSettings(const ServeSettings& settings) {
    if (settings.file && settings.fileHasToken) warnOfSecret("the token", *settings.file);
    if (settings.tlsCertificate) warnOfExpiry(*settings.tlsCertificate);
    if (settings.tlsKey) warnOfSecret("the key of the certificate", *settings.tlsKey);
}

}  // namespace app
