#pragma once

#include <filesystem>
#include <string>

namespace jupyter {

/// What a connection file says: where the sockets of a kernel are, and the key of its messages.
struct ConnectionFile {
    std::string transport = "tcp";  ///< or "ipc"
    std::string ip = "127.0.0.1";   ///< with ipc, the beginning of the sockets' paths
    int shellPort = 0;              ///< 0: any, which is written back into the file
    int controlPort = 0;
    int stdinPort = 0;
    int iopubPort = 0;
    int heartbeatPort = 0;
    std::string key{};  ///< empty: messages are not signed
    std::string signatureScheme = "hmac-sha256";

    /// A member that is missing has its default.
    /// Throws: std::runtime_error, which names the file and the member, and says what must be.
    static ConnectionFile read(const std::filesystem::path& path);
    /// Readable by its owner alone; what the file had beside these members is kept. Readers see it as it was
    /// or as it is then.
    /// Throws: std::runtime_error, which names the file.
    void write(const std::filesystem::path& path) const;

    bool operator==(const ConnectionFile&) const = default;
};

}  // namespace jupyter
