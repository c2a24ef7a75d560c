#include "server/store/SqliteStore.h"

#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>

#include "server/store/SqliteStatement.h"
#include "server/store/FoundPage.h"
#include "server/store/StoreError.h"
#include "server/store/StoredLists.h"

namespace qlm::ingest {

namespace {

// The bulky data column comes last, so listing events never reads a PDF's overflow pages.
constexpr const char* kSchema = R"sql(
CREATE TABLE IF NOT EXISTS recordings (
    id INTEGER PRIMARY KEY,
    appID TEXT NOT NULL,
    recordingID TEXT NOT NULL,
    sessionID INTEGER NOT NULL,
    tabID TEXT NOT NULL,
    firstSeen REAL NOT NULL,
    lastSeen REAL NOT NULL,
    UNIQUE (appID, recordingID, sessionID)
);
CREATE INDEX IF NOT EXISTS recordings_by_last_seen ON recordings (lastSeen);
CREATE TABLE IF NOT EXISTS events (
    id INTEGER PRIMARY KEY,
    recording INTEGER NOT NULL REFERENCES recordings (id),
    seqID INTEGER NOT NULL,
    time REAL NOT NULL,
    timeOffset REAL NOT NULL,
    type TEXT NOT NULL,
    summary TEXT NOT NULL,
    json TEXT NOT NULL,
    data BLOB NOT NULL,
    UNIQUE (recording, seqID)
);
CREATE INDEX IF NOT EXISTS events_by_type ON events (recording, type);
-- The words each event showed, under the event's id: only an index (no copy of the text, no
-- positions), since a query asks which events hold words beginning so, and nothing more.
CREATE VIRTUAL TABLE IF NOT EXISTS event_words USING fts5 (
    words, content = '', tokenize = 'ascii', detail = 'none', columnsize = 0
);
CREATE TABLE IF NOT EXISTS recording_tags (
    recording INTEGER NOT NULL REFERENCES recordings (id),
    kind TEXT NOT NULL,
    name TEXT NOT NULL,
    value TEXT NOT NULL,
    PRIMARY KEY (recording, kind, name, value)
) WITHOUT ROWID;
)sql";

constexpr const char* kRecordingColumns =
    "SELECT r.appID, r.recordingID, r.sessionID, r.tabID, r.firstSeen, r.lastSeen, "
    "(SELECT count(*) FROM events e WHERE e.recording = r.id), r.id, "
    "EXISTS (SELECT 1 FROM recording_tags t WHERE t.recording = r.id AND t.kind = 'error'), "
    "(SELECT json_group_array(t.value) FROM recording_tags t WHERE t.recording = r.id AND t.kind = 'user')";
const std::string kSelectRecording = std::string(kRecordingColumns) + " FROM recordings r ";

// The listing's filters; a parameter left unbound (NULL) lets every recording through.
constexpr const char* kFilters =
    "WHERE (?1 IS NULL OR r.appID = ?1) "
    "AND (?2 IS NULL OR EXISTS (SELECT 1 FROM recording_tags t "
    "WHERE t.recording = r.id AND t.kind = 'user' AND t.name = '' AND t.value = ?2)) "
    "AND (?3 IS NULL OR EXISTS (SELECT 1 FROM recording_tags t "
    "WHERE t.recording = r.id AND t.kind = 'trait' AND t.name = ?3 AND (?4 IS NULL OR t.value = ?4))) "
    "AND (?5 IS NULL OR r.lastSeen >= ?5) AND (?6 IS NULL OR r.firstSeen <= ?6) "
    "AND (?7 IS NULL OR EXISTS (SELECT 1 FROM recording_tags t "
    "WHERE t.recording = r.id AND t.kind = 'error')) "
    "AND (?8 IS NULL OR r.lastSeen < ?8 OR (r.lastSeen = ?8 AND r.id < ?9)) "
    "ORDER BY r.lastSeen DESC, r.id DESC LIMIT ?10";

// Events whose words hold every word of the query ?11 (an FTS5 expression), by recording.
constexpr const char* kHitsByRecording =
    "(SELECT e.recording AS recording, count(*) AS hits FROM event_words "
    "JOIN events e ON e.id = event_words.rowid WHERE event_words MATCH ?11 GROUP BY e.recording) h";

constexpr const char* kMoments =
    "SELECT recording, seqID, timeOffset, type, summary FROM ("
    "SELECT e.recording AS recording, e.seqID AS seqID, e.timeOffset AS timeOffset, e.type AS type, "
    "e.summary AS summary, row_number() OVER (PARTITION BY e.recording ORDER BY e.timeOffset, e.seqID) AS n "
    "FROM event_words JOIN events e ON e.id = event_words.rowid "
    "WHERE event_words MATCH ?1 AND e.recording IN (SELECT value FROM json_each(?2))) "
    "WHERE n <= ?3 ORDER BY recording, n";

// Every word as a prefix, all of them in one event: "card"* AND "froz"*.
std::string ftsQuery(const std::vector<std::string>& words) {
    std::string query;
    for (const std::string& word : words) {
        if (!query.empty()) query += " AND ";
        query += '"';
        for (const char c : word) query += c == '"' ? std::string("\"\"") : std::string(1, c);
        query += "\"*";
    }
    return query;
}

double nowMilliseconds() {
    using namespace std::chrono;
    return static_cast<double>(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

RecordingSummary readRecording(const SqliteStatement& row) {
    RecordingSummary summary;
    summary.key.appID = row.text(0);
    summary.key.recordingID = row.text(1);
    summary.key.sessionID = static_cast<uint32_t>(row.integer(2));
    summary.tabID = row.text(3);
    summary.firstSeen = row.real(4);
    summary.lastSeen = row.real(5);
    summary.eventCount = row.integer(6);
    summary.storeID = row.integer(7);
    summary.hasErrors = row.integer(8) != 0;
    summary.userIDs = stringsOfJsonArray(row.text(9));
    return summary;
}

SqliteStatement& bindKey(SqliteStatement& statement, const RecordingKey& key) {
    return statement.bindText(1, key.appID).bindText(2, key.recordingID).bindInteger(3, key.sessionID);
}

std::string temporaryPath() {
    const char* dir = std::getenv("TMPDIR");
    std::string pattern =
        std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/quillmere-ingest-XXXXXX";
    const int fd = ::mkstemp(pattern.data());
    if (fd < 0) throw StoreError("cannot create a temporary database in " + pattern);
    ::close(fd);
    return pattern;
}

}  // namespace

SqliteStore::SqliteStore(std::string path) : SqliteStore(std::move(path), false) {}

std::unique_ptr<SqliteStore> SqliteStore::createTemporary() {
    return std::unique_ptr<SqliteStore>(new SqliteStore(temporaryPath(), true));
}

SqliteStore::SqliteStore(std::string path, bool removeOnClose)
    : path_(std::move(path)), removeOnClose_(removeOnClose) {
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(path_.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
        const std::string message = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
        sqlite3_close(db_);
        throw StoreError("cannot open " + path_ + ": " + message);
    }
    try {
        sqlite3_busy_timeout(db_, 5000);
        exec("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = ON;");
        exec(kSchema);
        // Prepared once: preparing them for every batch cost about a tenth of the server's time.
        upsertRecording_ = std::make_unique<SqliteStatement>(
            db_,
            "INSERT INTO recordings (appID, recordingID, sessionID, tabID, firstSeen, lastSeen) "
            "VALUES (?1, ?2, ?3, ?4, ?5, ?5) ON CONFLICT (appID, recordingID, sessionID) "
            "DO UPDATE SET lastSeen = excluded.lastSeen RETURNING id");
        insertEvent_ = std::make_unique<SqliteStatement>(
            db_,
            "INSERT OR IGNORE INTO events (recording, seqID, time, timeOffset, type, summary, "
            "json, data) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)");
        insertWords_ =
            std::make_unique<SqliteStatement>(db_, "INSERT INTO event_words (rowid, words) VALUES (?1, ?2)");
        insertTag_ = std::make_unique<SqliteStatement>(
            db_,
            "INSERT OR IGNORE INTO recording_tags (recording, kind, name, value) VALUES (?1, ?2, ?3, ?4)");
    } catch (...) {
        upsertRecording_.reset();
        insertEvent_.reset();
        insertWords_.reset();
        insertTag_.reset();
        sqlite3_close(db_);
        throw;
    }
}

SqliteStore::~SqliteStore() {
    // Statements are finalized before their connection closes.
    upsertRecording_.reset();
    insertEvent_.reset();
    insertWords_.reset();
    insertTag_.reset();
    sqlite3_close(db_);
    if (removeOnClose_) {
        for (const char* suffix : {"", "-wal", "-shm", "-journal"}) ::unlink((path_ + suffix).c_str());
    }
}

void SqliteStore::exec(const char* sql) {
    char* message = nullptr;
    if (sqlite3_exec(db_, sql, nullptr, nullptr, &message) != SQLITE_OK) {
        const std::string text = message != nullptr ? message : "unknown error";
        sqlite3_free(message);
        throw StoreError("sqlite: " + text);
    }
}

std::size_t SqliteStore::addBatch(const IngestBatch& batch) {
    std::lock_guard lock(mutex_);
    exec("BEGIN IMMEDIATE");
    try {
        const double now = nowMilliseconds();
        SqliteStatement& upsert = *upsertRecording_;
        upsert.reset();
        bindKey(upsert, batch.key).bindText(4, batch.tabID).bindReal(5, now);
        if (!upsert.step()) throw StoreError("sqlite: no recording id");
        const int64_t recording = upsert.integer(0);
        while (upsert.step()) {
        }

        std::size_t added = 0;
        SqliteStatement& insert = *insertEvent_;
        for (const DecodedEvent& event : batch.events) {
            insert.reset();
            insert.bindInteger(1, recording).bindInteger(2, event.seqID).bindReal(3, event.time);
            insert.bindReal(4, event.timeOffset).bindText(5, event.type).bindText(6, event.summary);
            insert.bindText(7, event.json).bindBlob(8, event.data);
            insert.step();
            if (sqlite3_changes(db_) == 0) continue;  // a repeat: its index entries are there already
            ++added;
            index(recording, sqlite3_last_insert_rowid(db_), event);
        }
        // Unbinds the batch's texts, which the statements would otherwise point into until next time.
        upsert.reset();
        insert.reset();
        insertWords_->reset();
        insertTag_->reset();
        exec("COMMIT");
        return added;
    } catch (...) {
        sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
}

void SqliteStore::index(int64_t recording, int64_t eventRow, const DecodedEvent& event) {
    if (!event.words.empty()) {
        insertWords_->reset();
        insertWords_->bindInteger(1, eventRow).bindText(2, event.words).step();
    }
    for (const RecordingTag& tag : event.tags) {
        insertTag_->reset();
        insertTag_->bindInteger(1, recording)
            .bindText(2, tag.kind)
            .bindText(3, tag.name)
            .bindText(4, tag.value);
        insertTag_->step();
    }
}

std::vector<RecordingSummary> SqliteStore::recordings() const {
    std::lock_guard lock(mutex_);
    SqliteStatement select(db_, kSelectRecording + "ORDER BY r.lastSeen DESC, r.id DESC");
    std::vector<RecordingSummary> out;
    while (select.step()) out.push_back(readRecording(select));
    return out;
}

std::optional<RecordingSummary> SqliteStore::recording(const RecordingKey& key) const {
    std::lock_guard lock(mutex_);
    SqliteStatement select(
        db_, kSelectRecording + "WHERE r.appID = ?1 AND r.recordingID = ?2 AND r.sessionID = ?3");
    bindKey(select, key);
    if (!select.step()) return std::nullopt;
    return readRecording(select);
}

RecordingPage SqliteStore::findRecordings(const RecordingFilter& filter, std::optional<RecordingCursor> after,
                                          std::size_t limit, std::size_t moments) const {
    const bool searching = !filter.words.empty();
    const std::string sql = searching ? std::string(kRecordingColumns) + ", h.hits FROM " + kHitsByRecording +
                                            " JOIN recordings r ON r.id = h.recording " + kFilters
                                      : std::string(kRecordingColumns) + ", 0 FROM recordings r " + kFilters;
    std::lock_guard lock(mutex_);
    SqliteStatement select(db_, sql);
    if (!filter.appID.empty()) select.bindText(1, filter.appID);
    if (!filter.userID.empty()) select.bindText(2, filter.userID);
    if (!filter.traitName.empty()) select.bindText(3, filter.traitName);
    if (!filter.traitValue.empty()) select.bindText(4, filter.traitValue);
    if (filter.from) select.bindReal(5, *filter.from);
    if (filter.to) select.bindReal(6, *filter.to);
    if (filter.withErrors) select.bindInteger(7, 1);
    if (after) select.bindReal(8, after->lastSeen).bindInteger(9, after->storeID);
    select.bindInteger(10, static_cast<int64_t>(std::min<std::size_t>(limit, INT64_MAX - 1) + 1));
    const std::string query = ftsQuery(filter.words);
    if (searching) select.bindText(11, query);

    RecordingPage page;
    while (select.step()) {
        FoundRecording found{readRecording(select), select.integer(10), {}};
        page.recordings.push_back(std::move(found));
    }
    endPageAt(page, limit);
    if (!searching || moments == 0 || page.recordings.empty()) return page;

    SqliteStatement momentsOf(db_, kMoments);
    momentsOf.bindText(1, query).bindText(2, storeIDList(page, '[', ']'));
    momentsOf.bindInteger(3, static_cast<int64_t>(std::min<std::size_t>(moments, INT64_MAX)));
    while (momentsOf.step()) {
        addMoment(page, momentsOf.integer(0),
                  {static_cast<uint32_t>(momentsOf.integer(1)), momentsOf.real(2), momentsOf.text(3),
                   momentsOf.text(4)});
    }
    return page;
}

namespace {

// A recording's events in seqID order; column 6 is free for more.
constexpr std::string_view kSelectEvents = "SELECT e.seqID, e.time, e.timeOffset, e.type, e.summary, e.json";
constexpr std::string_view kOfRecordingInOrder =
    " FROM events e JOIN recordings r ON r.id = e.recording "
    "WHERE r.appID = ?1 AND r.recordingID = ?2 AND r.sessionID = ?3 AND e.seqID > ?4 "
    "ORDER BY e.seqID LIMIT ?5";

StoredEvent readEvent(SqliteStatement& select) {
    StoredEvent event;
    event.seqID = static_cast<uint32_t>(select.integer(0));
    event.time = select.real(1);
    event.timeOffset = select.real(2);
    event.type = select.text(3);
    event.summary = select.text(4);
    event.json = select.text(5);
    return event;
}

}  // namespace

std::vector<StoredEvent> SqliteStore::eventPage(const RecordingKey& key, std::optional<uint32_t> after,
                                                std::size_t limit, bool withData) const {
    std::lock_guard lock(mutex_);
    SqliteStatement select(db_, std::string(kSelectEvents) + (withData ? ", e.data" : "") +
                                    std::string(kOfRecordingInOrder));
    bindKey(select, key).bindInteger(4, after ? int64_t{*after} : int64_t{-1});
    select.bindInteger(5, static_cast<int64_t>(std::min<std::size_t>(limit, INT64_MAX)));
    std::vector<StoredEvent> out;
    while (select.step()) {
        out.push_back(readEvent(select));
        if (withData) out.back().data = select.blob(6);
    }
    return out;
}

std::optional<std::string> SqliteStore::eventData(const RecordingKey& key, uint32_t seqID,
                                                     std::string_view type) const {
    std::lock_guard lock(mutex_);
    SqliteStatement select(db_,
                           "SELECT e.data FROM events e JOIN recordings r ON r.id = e.recording "
                           "WHERE r.appID = ?1 AND r.recordingID = ?2 AND r.sessionID = ?3 AND e.seqID = ?4 "
                           "AND e.type = ?5");
    bindKey(select, key).bindInteger(4, seqID).bindText(5, type);
    if (!select.step()) return std::nullopt;
    return select.blob(0);
}

}  // namespace qlm::ingest
