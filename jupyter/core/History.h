#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "Database.h"
#include "Request.h"

namespace jupyter {

/// The cells of a kernel, in memory or in a file that it shares with those before it and beside it. Each life
/// of an interpreter is a session, and the sessions of a file are numbered.
///
/// Threads: on the kernel's executor.  Blocks: as Database, and while the disk does.
class History {
public:
    static constexpr std::int64_t most = 10'000;
    /// In UTF-8. The oldest are forgotten beyond it, a while later.
    static constexpr std::int64_t mostBytes = std::int64_t{4} << 20;
    static constexpr std::size_t longestCell = std::size_t{1} << 20;  ///< longer ones are not kept

    /// The file, readable by its owner alone, and its folder are made when they are needed. Where it cannot
    /// be used, a line in the log says why, and memory is. So it is with an empty path.
    explicit History(std::string file = {}) : file_(std::move(file)) {}

    /// Where it cannot be stored, a line in the log says so once.
    void add(std::uint64_t count, const std::string& code);
    /// The interpreter is new.
    void beginSession() { session_ = 0; }
    /// The JSON array that answers a history_request.  Throws: std::exception, which says why there is none.
    std::string answer(const Request& request);

private:
    Database& database();
    std::int64_t session();
    void forgetOldest();
    std::string tail(const Poco::JSON::Object& request);
    std::string range(const Poco::JSON::Object& request);
    std::string search(const Poco::JSON::Object& request);

    const std::string file_;
    std::optional<Database> database_;
    std::int64_t session_ = 0;  ///< 0: not begun
    std::int64_t added_ = 0;    ///< bytes since the oldest were forgotten
    bool isLossTold_ = false;
};

}  // namespace jupyter
