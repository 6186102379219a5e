#include "Database.h"

#include <sqlite3.h>

namespace jupyter {

namespace {

constexpr int longestWaitMs = 100;

void require(sqlite3* database, bool isDone) {
    if (isDone) return;
    if (sqlite3_errcode(database) == SQLITE_BUSY) throw DatabaseIsLocked(sqlite3_errmsg(database));
    throw std::runtime_error(sqlite3_errmsg(database));
}

}  // namespace

void Database::Close::operator()(sqlite3* database) const { sqlite3_close(database); }

Database::Database(const std::string& file) {
    sqlite3* opened = nullptr;
    const int code = sqlite3_open_v2(
        file.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    database_.reset(opened);
    require(opened, code == SQLITE_OK);
    sqlite3_busy_timeout(opened, longestWaitMs);
}

void Database::run(const char* statements) {
    require(&get(), sqlite3_exec(&get(), statements, nullptr, nullptr, nullptr) == SQLITE_OK);
}

bool Database::isInTransaction() const { return sqlite3_get_autocommit(database_.get()) == 0; }

void Statement::Finalize::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

Statement::Statement(Database& database, const char* text) : database_(database) {
    sqlite3_stmt* prepared = nullptr;
    const int code = sqlite3_prepare_v2(&database.get(), text, -1, &prepared, nullptr);
    statement_.reset(prepared);
    require(code == SQLITE_OK);
}

void Statement::require(bool isDone) const { jupyter::require(&database_.get(), isDone); }

Statement& Statement::bind(std::int64_t value) {
    require(sqlite3_bind_int64(statement_.get(), ++bound_, value) == SQLITE_OK);
    return *this;
}

Statement& Statement::bind(std::string_view text) {
    require(sqlite3_bind_text64(statement_.get(), ++bound_, text.data(), text.size(), SQLITE_STATIC,
                                SQLITE_UTF8) == SQLITE_OK);
    return *this;
}

bool Statement::next() {
    const int code = sqlite3_step(statement_.get());
    require(code == SQLITE_ROW || code == SQLITE_DONE);
    return code == SQLITE_ROW;
}

std::int64_t Statement::number(int column) const { return sqlite3_column_int64(statement_.get(), column); }

std::string_view Statement::text(int column) const {
    const auto* text = sqlite3_column_text(statement_.get(), column);
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
    return text == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char*>(text), size);
}

}  // namespace jupyter
