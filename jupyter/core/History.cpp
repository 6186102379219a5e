#include "History.h"

#include <algorithm>
#include <filesystem>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

#include "connector/json/escape.h"
#include "foundation/log/diagnostic_logger.h"

namespace jupyter {

using Kind = dispatch::Member::Kind;
using Poco::JSON::Object;

namespace {

// A search takes the product of its length and that of all code.
constexpr std::size_t longestPattern = 200;
constexpr std::int64_t each = 64;  // bytes that a cell counts beside its code
constexpr std::int64_t mostUnstored = History::mostBytes / 4;

constexpr dispatch::Member members[] = {{"hist_access_type", Kind::String, true},
                                        {"output", Kind::Boolean},
                                        {"raw", Kind::Boolean},
                                        {"session", Kind::Integer, false, -dispatch::unlimited},
                                        {"start", Kind::Integer, false, -dispatch::unlimited},
                                        {"stop", Kind::Integer, false, -dispatch::unlimited},
                                        {"n", Kind::Integer},
                                        {"pattern", Kind::String},
                                        {"unique", Kind::Boolean}};

// Processes that end lose nothing by not waiting for the disk.
constexpr const char* schema = R"(
PRAGMA journal_mode = TRUNCATE;
PRAGMA synchronous = OFF;
CREATE TABLE IF NOT EXISTS sessions(id INTEGER PRIMARY KEY AUTOINCREMENT);
CREATE TABLE IF NOT EXISTS cells(id INTEGER PRIMARY KEY, session INTEGER NOT NULL, line INTEGER NOT NULL, code TEXT NOT NULL);
)";

foundation::log::DiagnosticLogger log() { return foundation::log::DiagnosticLogger("jupyter"); }

std::int64_t sizeOf(const std::string& code) { return static_cast<std::int64_t>(code.size()) + each; }

void makeForOwner(const std::filesystem::path& file) {
    std::error_code ignored;  // the database says what is wrong
    if (!file.parent_path().empty()) std::filesystem::create_directories(file.parent_path(), ignored);
    const int made = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (made >= 0) ::close(made);
}

Database opened(const std::string& file) {
    Database database(file);
    database.run(schema);
    return database;
}

// Of the columns session, line and code.
std::string rowsOf(Statement& statement, const Object& request) {
    const bool hasOutput = memberOr(request, "output", false);
    std::string json = "[";
    while (statement.next()) {
        const std::string code = connector::json::quoted(statement.text(2));
        json.append(json.size() > 1 ? ",[" : "[").append(std::to_string(statement.number(0)));
        json.append(",").append(std::to_string(statement.number(1))).append(",");
        json.append(hasOutput ? '[' + code + ",null]" : code).append("]");
    }
    return json + ']';
}

std::int64_t lastOf(const Object& request) { return memberOr<std::int64_t>(request, "n", -1); }

}  // namespace

Database& History::database() {
    if (database_) return *database_;
    if (!file_.empty()) {
        try {
            makeForOwner(file_);
            database_.emplace(opened(file_));
            forgetOldest();
            return *database_;
        } catch (const DatabaseIsLocked&) {
            if (database_) return *database_;  // the oldest are forgotten another time
            throw;
        } catch (const std::exception& error) {
            log().warning("The history of notebooks is kept in memory only: " + file_ + ": " + error.what());
        }
    }
    return database_.emplace(opened(":memory:"));
}

std::int64_t History::session() {
    if (session_ == 0) {
        Statement begun(database(), "INSERT INTO sessions DEFAULT VALUES RETURNING id");
        begun.next();
        const auto number = begun.number(0);
        begun.next();  // it is written then
        session_ = number;
    }
    return session_;
}

void History::add(std::uint64_t count, const std::string& code) {
    if (code.size() > longestCell) return;
    added_.push_back({count, code});
    addedBytes_ += sizeOf(code);
    if (addedBytes_ <= mostUnstored) return;
    store();
    if (addedBytes_ > mostUnstored) forgetAdded();
}

void History::store() {
    if (added_.empty()) return;
    try {
        auto& all = database();
        const auto number = session();
        all.run("BEGIN IMMEDIATE");
        try {
            for (const auto& [count, code] : added_) {
                Statement(all, "INSERT INTO cells(session, line, code) VALUES(?, ?, ?)")
                    .bind(number)
                    .bind(static_cast<std::int64_t>(count))
                    .bind(code)
                    .next();
            }
            all.run("COMMIT");
        } catch (const std::exception&) {
            if (all.isInTransaction()) all.run("ROLLBACK");
            throw;
        }
        storedBytes_ += addedBytes_;
        storedCells_ += static_cast<std::int64_t>(added_.size());
        forgetAdded();
        if (storedBytes_ > mostBytes / 4 || storedCells_ > most / 4) forgetOldest();
    } catch (const std::exception& error) {
        if (std::exchange(isLossTold_, true)) return;
        log().warning("Cells are not kept in the history: " + std::string(error.what()));
    }
}

void History::forgetAdded() {
    added_.clear();
    addedBytes_ = 0;
}

void History::beginSession() {
    store();
    session_ = 0;
}

void History::forgetOldest() {
    Statement(*database_, R"(
DELETE FROM cells WHERE id <= (
    SELECT max(id) FROM (
        SELECT id, row_number() OVER later AS count, sum(length(CAST(code AS BLOB)) + ?) OVER later AS bytes
        FROM cells WINDOW later AS (ORDER BY id DESC))
    WHERE count > ? OR bytes > ?))")
        .bind(each)
        .bind(most)
        .bind(mostBytes)
        .next();
    storedBytes_ = storedCells_ = 0;
    database_->run("DELETE FROM sessions WHERE id < (SELECT max(id) FROM sessions)");  // the numbers go on
}

std::string History::answer(const Request& message) {
    const auto request = message.content(members);
    const auto type = request->getValue<std::string>("hist_access_type");
    store();
    if (type == "range") return range(*request);
    if (type == "search") return search(*request);
    if (type == "tail") return tail(*request);
    throw dispatch::BadMessage(R"(hist_access_type must be "range", "tail" or "search")");
}

std::string History::tail(const Object& request) {
    Statement last(database(), R"(
SELECT session, line, code FROM (SELECT * FROM cells ORDER BY id DESC LIMIT ?) ORDER BY id)");
    return rowsOf(last.bind(lastOf(request)), request);
}

// Sessions up to 0 are counted from this one. Lines are counted from 1, and negative numbers from the end;
// `stop` is not among them.
std::string History::range(const Object& request) {
    auto session = memberOr<std::int64_t>(request, "session", 0);
    if (session <= 0) session += this->session();
    Statement lastLine(database(), "SELECT ifnull(max(line), 0) FROM cells WHERE session = ?");
    lastLine.bind(session).next();
    const std::int64_t end = lastLine.number(0) + 1;
    const auto fromStart = [&](const char* name, std::int64_t otherwise) {
        const auto line = memberOr<std::int64_t>(request, name, otherwise);
        return line < 0 ? std::max(line, -end) + end : line;
    };
    Statement lines(database(), R"(
SELECT session, line, code FROM cells WHERE session = ? AND line >= ? AND line < ? ORDER BY id)");
    return rowsOf(lines.bind(session).bind(fromStart("start", 0)).bind(fromStart("stop", end)), request);
}

// Of unique code, the last cell counts: max() chooses the row of which the other columns are.
std::string History::search(const Object& request) {
    const auto pattern = memberOr<std::string>(request, "pattern", "*");
    if (pattern.size() > longestPattern) {
        throw dispatch::BadMessage("pattern must have at most " + std::to_string(longestPattern) + " bytes");
    }
    Statement found(database(), memberOr(request, "unique", false) ? R"(
SELECT session, line, code FROM (
    SELECT max(id) AS id, session, line, code FROM cells WHERE code GLOB ? GROUP BY code ORDER BY id DESC LIMIT ?)
ORDER BY id)"
                                                                   : R"(
SELECT session, line, code FROM (SELECT * FROM cells WHERE code GLOB ? ORDER BY id DESC LIMIT ?) ORDER BY id)");
    return rowsOf(found.bind(pattern).bind(lastOf(request)), request);
}

}  // namespace jupyter
