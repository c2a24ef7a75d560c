#include "server/store/SqliteStatement.h"

#include <sqlite3.h>

#include "server/store/StoreError.h"

namespace qlm::ingest {

SqliteStatement::SqliteStatement(sqlite3* db, std::string_view sql) : db_(db) {
    if (sqlite3_prepare_v2(db_, sql.data(), static_cast<int>(sql.size()), &statement_, nullptr) !=
        SQLITE_OK) {
        fail("prepare");
    }
}

SqliteStatement::~SqliteStatement() {
    sqlite3_finalize(statement_);
}

void SqliteStatement::fail(const char* what) const {
    throw StoreError(std::string("sqlite ") + what + ": " + sqlite3_errmsg(db_));
}

SqliteStatement& SqliteStatement::bindText(int index, std::string_view text) {
    if (sqlite3_bind_text64(statement_, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8) !=
        SQLITE_OK) {
        fail("bind");
    }
    return *this;
}

SqliteStatement& SqliteStatement::bindBlob(int index, std::string_view bytes) {
    // A zero-length blob must still be a blob, not NULL: an all-default message has no bytes.
    static const char kEmpty = 0;
    const char* data = bytes.empty() ? &kEmpty : bytes.data();
    if (sqlite3_bind_blob64(statement_, index, data, bytes.size(), SQLITE_TRANSIENT) != SQLITE_OK)
        fail("bind");
    return *this;
}

SqliteStatement& SqliteStatement::bindInteger(int index, int64_t value) {
    if (sqlite3_bind_int64(statement_, index, value) != SQLITE_OK) fail("bind");
    return *this;
}

SqliteStatement& SqliteStatement::bindReal(int index, double value) {
    if (sqlite3_bind_double(statement_, index, value) != SQLITE_OK) fail("bind");
    return *this;
}

bool SqliteStatement::step() {
    const int result = sqlite3_step(statement_);
    if (result == SQLITE_ROW) return true;
    if (result == SQLITE_DONE) return false;
    fail("step");
}

void SqliteStatement::reset() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

std::string SqliteStatement::text(int column) const {
    const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    return data == nullptr
               ? std::string()
               : std::string(data, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
}

std::string SqliteStatement::blob(int column) const {
    const auto* data = static_cast<const char*>(sqlite3_column_blob(statement_, column));
    return data == nullptr
               ? std::string()
               : std::string(data, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
}

int64_t SqliteStatement::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}

double SqliteStatement::real(int column) const {
    return sqlite3_column_double(statement_, column);
}

}  // namespace qlm::ingest
