#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

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
    ~History() { store(); }
    History(const History&) = delete;
    History& operator=(const History&) = delete;

    /// Stores it later, which takes longer than many a cell.
    void add(std::uint64_t count, const std::string& code);
    bool isStored() const { return added_.empty(); }
    /// What cannot be stored is kept for the next time, up to `mostBytes / 4`, and a line in the log says so
    /// once.
    void store();
    /// The interpreter is new.
    void beginSession();
    /// The JSON array that answers a history_request.  Throws: std::exception, which says why there is none.
    std::string answer(const Request& request);

private:
    struct Cell {
        std::uint64_t count;
        std::string code;
    };

    Database& database();
    std::int64_t session();
    void forgetOldest();
    void forgetAdded();
    std::string tail(const Poco::JSON::Object& request);
    std::string range(const Poco::JSON::Object& request);
    std::string search(const Poco::JSON::Object& request);

    const std::string file_;
    std::optional<Database> database_;
    std::int64_t session_ = 0;  ///< 0: not begun
    std::vector<Cell> added_;   ///< and not stored yet
    std::int64_t addedBytes_ = 0;
    std::int64_t storedBytes_ = 0, storedCells_ = 0;  ///< since the oldest were forgotten
    bool isLossTold_ = false;
};

}  // namespace jupyter
