#pragma once
// One prepared SQLite statement, finalized on destruction. Used by one thread at a time, under the
// lock of whoever owns the connection. Every failure throws StoreError.
#include <cstdint>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace qlm::ingest {

class SqliteStatement {
public:
    SqliteStatement(sqlite3* db, std::string_view sql);
    ~SqliteStatement();
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

    // Parameters count from 1, as in SQL's "?1".
    SqliteStatement& bindText(int index, std::string_view text);
    SqliteStatement& bindBlob(int index, std::string_view bytes);
    SqliteStatement& bindInteger(int index, int64_t value);
    SqliteStatement& bindReal(int index, double value);

    // True when a row is ready to be read, false when the statement has finished.
    bool step();
    // Makes the statement ready to run again with new bindings.
    void reset();

    // Columns count from 0.
    std::string text(int column) const;
    std::string blob(int column) const;
    int64_t integer(int column) const;
    double real(int column) const;

private:
    [[noreturn]] void fail(const char* what) const;

    sqlite3* db_;
    sqlite3_stmt* statement_ = nullptr;
};

}  // namespace qlm::ingest
