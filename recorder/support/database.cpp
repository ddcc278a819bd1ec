#include "recorder/support/database.h"

#include <sqlite3.h>

namespace lenswire::recorder {

Query::~Query() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

Query& Query::bind(int64_t value) {
    sqlite3_bind_int64(statement_, next_parameter_++, value);
    return *this;
}

Query& Query::bind(std::string_view text) {
    sqlite3_bind_text(statement_, next_parameter_++, text.data(), static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
    return *this;
}

Query& Query::bind(std::span<const uint8_t> bytes) {
    sqlite3_bind_blob(statement_, next_parameter_++, bytes.data(), static_cast<int>(bytes.size()),
                      SQLITE_TRANSIENT);
    return *this;
}

bool Query::row() {
    const int result = sqlite3_step(statement_);
    if (result != SQLITE_ROW && result != SQLITE_DONE)
        throw local_failure(std::string("the database cannot be read: ") + sqlite3_errstr(result));
    return result == SQLITE_ROW;
}

bool Query::run() {
    return sqlite3_step(statement_) == SQLITE_DONE;
}

bool Query::null(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

int64_t Query::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}

std::string Query::text(int column) const {
    const unsigned char* text = sqlite3_column_text(statement_, column);
    return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

std::span<const uint8_t> Query::bytes(int column) const {
    const void* bytes = sqlite3_column_blob(statement_, column);
    return {static_cast<const uint8_t*>(bytes),
            static_cast<size_t>(bytes != nullptr ? sqlite3_column_bytes(statement_, column) : 0)};
}

Database::Database(const std::string& file) : file_(file) {
    const char* name = file.empty() ? ":memory:" : file.c_str();
    // The owner of the database locks around it, so SQLite need not.
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    sqlite3* connection = nullptr;
    const int result = sqlite3_open_v2(name, &connection, flags, nullptr);
    connection_.reset(connection);  // there is one to be closed even when opening failed
    if (result != SQLITE_OK) fail();
    sqlite3_busy_timeout(connection, 1000);
}

Database::~Database() {
    for (const auto& [sql, statement] : statements_) sqlite3_finalize(statement);
}

void Database::Close::operator()(sqlite3* connection) const {
    sqlite3_close(connection);
}

void Database::execute(const char* sql) {
    if (sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail();
}

Query Database::query(const char* sql) {
    sqlite3_stmt*& statement = statements_[sql];
    if (statement == nullptr && sqlite3_prepare_v3(connection_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT,
                                                   &statement, nullptr) != SQLITE_OK) {
        fail();
    }
    return Query(statement);
}

void Database::roll_back() {
    error_ = sqlite3_errmsg(connection_.get());
    busy_ = (sqlite3_errcode(connection_.get()) & 0xFF) == SQLITE_BUSY;
    sqlite3_exec(connection_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Database::fail() {
    const std::string reason = sqlite3_errmsg(connection_.get());
    throw bad_input((file_.empty() ? "database" : "database " + file_) + ": " + reason);
}

}  // namespace lenswire::recorder
