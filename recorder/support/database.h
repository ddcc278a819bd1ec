// A thin layer over SQLite: a connection that keeps its statements, and a query that is bound, stepped and
// reset by its scope.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "recorder/support/failure.h"

struct sqlite3;
struct sqlite3_stmt;

namespace lenswire::recorder {

// One use of a statement. Columns and parameters count from 0 and 1, as in SQLite.
class Query {
  public:
    explicit Query(sqlite3_stmt* statement) : statement_(statement) {}
    ~Query();
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;

    Query& bind(int64_t value);
    Query& bind(std::string_view text);
    Query& bind(std::span<const uint8_t> bytes);

    bool row();  // steps to the next row; false at the end; throws when it cannot be read
    bool null(int column) const;
    bool run();  // for statements without rows; true when it was done

    int64_t integer(int column) const;
    std::string text(int column) const;
    std::span<const uint8_t> bytes(int column) const;  // until the next step

  private:
    sqlite3_stmt* statement_;
    int next_parameter_ = 1;
};

class Database {
  public:
    // Empty: in memory. Throws a bad-input Failure when the file cannot be used.
    explicit Database(const std::string& file);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    void execute(const char* sql);  // throws
    // `sql` must be a literal: its statement is prepared once and kept. Throws when it does not parse.
    Query query(const char* sql);

    // Runs `body` in a transaction; what it did is undone when it returns false or cannot be committed.
    template <typename F>
    bool transact(F body) {
        bool done = false;
        try {
            done = query("BEGIN IMMEDIATE").run() && body() && query("COMMIT").run();
        } catch (const Failure&) {
        }
        if (!done) roll_back();
        return done;
    }
    const std::string& error() const { return error_; }  // of the latest transaction that failed
    bool was_busy() const { return busy_; }              // that it was another's turn for too long

  private:
    [[noreturn]] void fail();
    void roll_back();

    struct Close {
        void operator()(sqlite3* connection) const;
    };

    std::string file_;
    std::string error_;
    bool busy_ = false;
    std::unique_ptr<sqlite3, Close> connection_;
    std::map<const char*, sqlite3_stmt*> statements_;
};

}  // namespace lenswire::recorder
