#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace jupyter {

/// Another process has held the file for too long.
struct DatabaseIsLocked : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A database of SQLite in a file, or in memory.
///
/// Threads: one at a time.  Throws, as its statements do: std::runtime_error, which says what SQLite says.
/// Blocks: while another process writes to the file, for a tenth of a second at most; then it throws
/// DatabaseIsLocked.
class Database {
public:
    /// The file is made where there is none. ":memory:" is none.
    explicit Database(const std::string& file);

    /// Statements without parameters or rows.
    void run(const char* statements);
    /// Whether there is something to roll back.
    bool isInTransaction() const;

    sqlite3& get() { return *database_; }

private:
    struct Close {
        void operator()(sqlite3* database) const;
    };
    std::unique_ptr<sqlite3, Close> database_;
};

/// One statement, for one run.
class Statement {
public:
    Statement(Database& database, const char* text);

    /// The values of its parameters, in their order. Text must outlive the statement.
    Statement& bind(std::int64_t value);
    Statement& bind(std::string_view text);
    /// Goes to the first row, or the next one; false after the last.
    bool next();
    std::int64_t number(int column) const;
    std::string_view text(int column) const;  ///< until `next`

private:
    void require(bool isDone) const;

    struct Finalize {
        void operator()(sqlite3_stmt* statement) const;
    };
    Database& database_;
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
    int bound_ = 0;
};

}  // namespace jupyter
