#include "ServeWarnings.h"

#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "foundation/log/diagnostic_logger.h"

namespace app {

namespace {

// The group of a file of root's is how a server that is not root gets at it.
bool isReadByOthers(const std::string& file) {
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0) return false;
    const mode_t others = status.st_uid == ::geteuid() ? S_IRWXG | S_IRWXO : S_IRWXO;
    return (status.st_mode & others) != 0;
}

void warnOfSecret(const std::string& what, const std::string& file) {
    if (!isReadByOthers(file)) return;
    foundation::log::DiagnosticLogger("numora::serve")
        .warning(file + ", which holds " + what +
                 ", can be read by other users: its mode must be 600, or 640 for root.");
}

}  // namespace

void warnOfSettings(const ServeSettings& settings) {
    if (settings.file && settings.fileHasToken) warnOfSecret("the token", *settings.file);
    if (settings.tlsKey) warnOfSecret("the key of the certificate", *settings.tlsKey);
}

}  // namespace app
