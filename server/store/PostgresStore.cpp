#include "server/store/PostgresStore.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <pqxx/pqxx>

#include "server/store/FoundPage.h"
#include "server/store/StoreError.h"
#include "server/store/StoredLists.h"

namespace qlm::ingest {

namespace {

// Several processes may start at once against a new database: the schema is made under a lock of
// the database's own, so that two CREATEs of the same table never race.
constexpr const char* kSchema = R"sql(
SELECT pg_advisory_xact_lock(7438112);
CREATE TABLE IF NOT EXISTS recordings (
    id BIGINT GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    appID TEXT NOT NULL,
    recordingID TEXT NOT NULL,
    sessionID BIGINT NOT NULL CHECK (sessionID BETWEEN 0 AND 4294967295),
    tabID TEXT NOT NULL,
    firstSeen DOUBLE PRECISION NOT NULL,
    lastSeen DOUBLE PRECISION NOT NULL,
    UNIQUE (appID, recordingID, sessionID)
);
CREATE INDEX IF NOT EXISTS recordings_by_last_seen ON recordings (lastSeen);
CREATE TABLE IF NOT EXISTS events (
    recording BIGINT NOT NULL REFERENCES recordings (id),
    seqID BIGINT NOT NULL CHECK (seqID BETWEEN 0 AND 4294967295),
    time DOUBLE PRECISION NOT NULL,
    timeOffset DOUBLE PRECISION NOT NULL,
    type TEXT NOT NULL,
    summary TEXT NOT NULL,
    json TEXT NOT NULL,
    data BYTEA NOT NULL,
    PRIMARY KEY (recording, seqID)
);
CREATE INDEX IF NOT EXISTS events_by_type ON events (recording, type);
-- The words each event showed, as lexemes without positions: a query asks which events hold words
-- beginning so, and nothing more.
CREATE TABLE IF NOT EXISTS event_words (
    recording BIGINT NOT NULL,
    seqID BIGINT NOT NULL,
    words TSVECTOR NOT NULL,
    FOREIGN KEY (recording, seqID) REFERENCES events (recording, seqID)
);
CREATE INDEX IF NOT EXISTS event_words_by_word ON event_words USING GIN (words);
CREATE TABLE IF NOT EXISTS recording_tags (
    recording BIGINT NOT NULL REFERENCES recordings (id),
    kind TEXT NOT NULL,
    name TEXT NOT NULL,
    value TEXT NOT NULL,
    PRIMARY KEY (recording, kind, name, value)
);
)sql";

constexpr const char* kRecordingColumns =
    "SELECT r.appID, r.recordingID, r.sessionID, r.tabID, r.firstSeen, r.lastSeen, "
    "(SELECT count(*) FROM events e WHERE e.recording = r.id), r.id, "
    "EXISTS (SELECT 1 FROM recording_tags t WHERE t.recording = r.id AND t.kind = 'error'), "
    "(SELECT coalesce(json_agg(t.value), '[]')::text FROM recording_tags t WHERE t.recording = r.id "
    "AND t.kind = 'user')";
const std::string kSelectRecording = std::string(kRecordingColumns) + " FROM recordings r ";

// The listing's filters; a NULL parameter lets every recording through.
constexpr const char* kFilters =
    "WHERE ($1::text IS NULL OR r.appID = $1) "
    "AND ($2::text IS NULL OR EXISTS (SELECT 1 FROM recording_tags t "
    "WHERE t.recording = r.id AND t.kind = 'user' AND t.name = '' AND t.value = $2)) "
    "AND ($3::text IS NULL OR EXISTS (SELECT 1 FROM recording_tags t "
    "WHERE t.recording = r.id AND t.kind = 'trait' AND t.name = $3 AND ($4::text IS NULL OR t.value = $4))) "
    "AND ($5::double precision IS NULL OR r.lastSeen >= $5) "
    "AND ($6::double precision IS NULL OR r.firstSeen <= $6) "
    "AND ($7::boolean IS NULL OR EXISTS (SELECT 1 FROM recording_tags t "
    "WHERE t.recording = r.id AND t.kind = 'error')) "
    "AND ($8::double precision IS NULL OR r.lastSeen < $8 OR (r.lastSeen = $8 AND r.id < $9::bigint)) "
    "ORDER BY r.lastSeen DESC, r.id DESC LIMIT $10::bigint";

// Events whose words hold the query $11 (a tsquery), by recording.
constexpr const char* kHitsByRecording =
    "(SELECT w.recording, count(*) AS hits FROM event_words w WHERE w.words @@ $11::tsquery "
    "GROUP BY w.recording) h";

constexpr const char* kMoments =
    "SELECT recording, seqID, timeOffset, type, summary FROM ("
    "SELECT w.recording, w.seqID, e.timeOffset, e.type, e.summary, "
    "row_number() OVER (PARTITION BY w.recording ORDER BY e.timeOffset, w.seqID) AS n "
    "FROM event_words w JOIN events e ON e.recording = w.recording AND e.seqID = w.seqID "
    "WHERE w.words @@ $1::tsquery AND w.recording = ANY ($2::bigint[])) m "
    "WHERE n <= $3 ORDER BY recording, n";

// A lexeme as tsvector and tsquery texts write it: quoted, with quotes doubled and backslashes
// escaped. Neither text is normalised by PostgreSQL, so the words stay exactly as searchWords() made them.
std::string lexeme(std::string_view word) {
    std::string out = "'";
    for (const char c : word) {
        if (c == '\'' || c == '\\') out += c;
        out += c;
    }
    return out + "'";
}

std::string tsvectorText(std::string_view words) {
    std::string out;
    while (!words.empty()) {
        const auto space = words.find(' ');
        const std::string_view word = words.substr(0, space);
        if (!word.empty()) out += (out.empty() ? "" : " ") + lexeme(word);
        if (space == std::string_view::npos) break;
        words.remove_prefix(space + 1);
    }
    return out;
}

// Every word as a prefix, all of them in one event: 'card':* & 'froz':*.
std::string tsqueryText(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& word : words) out += (out.empty() ? "" : " & ") + lexeme(word) + ":*";
    return out;
}
constexpr const char* kOfRecording =
    " FROM events e JOIN recordings r ON r.id = e.recording "
    "WHERE r.appID = $1 AND r.recordingID = $2 AND r.sessionID = $3 ";

void prepareStatements(pqxx::connection& connection) {
    // The recording row is locked by the upsert, so batches of one session are stored one after
    // another whichever process takes them.
    connection.prepare("upsert_recording",
                       "INSERT INTO recordings (appID, recordingID, sessionID, tabID, firstSeen, lastSeen) "
                       "VALUES ($1, $2, $3, $4, $5, $5) ON CONFLICT (appID, recordingID, sessionID) "
                       "DO UPDATE SET lastSeen = GREATEST(recordings.lastSeen, excluded.lastSeen) RETURNING id");
    connection.prepare("insert_event",
                       "INSERT INTO events (recording, seqID, time, timeOffset, type, summary, json, data) "
                       "VALUES ($1, $2, $3, $4, $5, $6, $7, $8) ON CONFLICT (recording, seqID) DO NOTHING");
    connection.prepare("insert_words",
                       "INSERT INTO event_words (recording, seqID, words) VALUES ($1, $2, $3::tsvector)");
    connection.prepare("insert_tag",
                       "INSERT INTO recording_tags (recording, kind, name, value) VALUES ($1, $2, $3, $4) "
                       "ON CONFLICT DO NOTHING");
    connection.prepare("recordings", kSelectRecording + "ORDER BY r.lastSeen DESC, r.id DESC");
    connection.prepare("recording",
                       kSelectRecording + "WHERE r.appID = $1 AND r.recordingID = $2 AND r.sessionID = $3");
    connection.prepare("list_recordings",
                       std::string(kRecordingColumns) + ", 0::bigint FROM recordings r " + kFilters);
    connection.prepare("search_recordings", std::string(kRecordingColumns) + ", h.hits FROM " +
                                                kHitsByRecording +
                                                " JOIN recordings r ON r.id = h.recording " + kFilters);
    connection.prepare("search_moments", kMoments);
    const std::string columns = "SELECT e.seqID, e.time, e.timeOffset, e.type, e.summary, e.json";
    const std::string page = std::string(kOfRecording) + "AND e.seqID > $4 ORDER BY e.seqID LIMIT $5";
    connection.prepare("event_page", columns + page);
    connection.prepare("event_page_with_data", columns + ", e.data" + page);
    connection.prepare("event_data", std::string("SELECT e.data") + kOfRecording + "AND e.seqID = $4 AND e.type = $5");
}

double nowMilliseconds() {
    using namespace std::chrono;
    return static_cast<double>(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

RecordingSummary readRecording(const pqxx::row& row) {
    RecordingSummary summary;
    summary.key.appID = row[0].as<std::string>();
    summary.key.recordingID = row[1].as<std::string>();
    summary.key.sessionID = static_cast<uint32_t>(row[2].as<int64_t>());
    summary.tabID = row[3].as<std::string>();
    summary.firstSeen = row[4].as<double>();
    summary.lastSeen = row[5].as<double>();
    summary.eventCount = row[6].as<int64_t>();
    summary.storeID = row[7].as<int64_t>();
    summary.hasErrors = row[8].as<bool>();
    summary.userIDs = stringsOfJsonArray(row[9].as<std::string>());
    return summary;
}

// libpqxx's failures become the store's own.
template <class Work>
auto guarded(Work&& work) -> decltype(work()) {
    try {
        return work();
    } catch (const pqxx::failure& e) {
        throw StoreError(std::string("postgresql: ") + e.what());
    } catch (const pqxx::usage_error& e) {
        throw StoreError(std::string("postgresql: ") + e.what());
    }
}

}  // namespace

struct PostgresStore::Connection {
    explicit Connection(const std::string& uri) : link(uri) { prepareStatements(link); }
    pqxx::connection link;
};

// One pooled connection, lent to one thread until destroyed. A connection that broke is not
// returned: the next lease opens a new one.
class PostgresStore::Lease {
public:
    explicit Lease(const PostgresStore& store) : store_(store) {
        std::unique_lock lock(store_.mutex_);
        store_.returned_.wait(lock, [&] { return !store_.idle_.empty() || store_.open_ < store_.poolSize_; });
        if (!store_.idle_.empty()) {
            connection_ = std::move(store_.idle_.back());
            store_.idle_.pop_back();
            return;
        }
        ++store_.open_;
        lock.unlock();
        try {
            connection_ = store_.connect();
        } catch (...) {
            giveBack();
            throw;
        }
    }
    ~Lease() { giveBack(); }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    pqxx::connection& operator*() const { return connection_->link; }

private:
    void giveBack() {
        {
            std::lock_guard lock(store_.mutex_);
            if (connection_ && connection_->link.is_open()) {
                store_.idle_.push_back(std::move(connection_));
            } else {
                --store_.open_;
            }
        }
        store_.returned_.notify_one();
    }

    const PostgresStore& store_;
    std::unique_ptr<Connection> connection_;
};

PostgresStore::PostgresStore(std::string uri, std::size_t poolSize)
    : uri_(std::move(uri)), poolSize_(std::max<std::size_t>(1, poolSize)) {
    guarded([&] {
        Lease lease(*this);
        pqxx::work work(*lease);
        work.exec(kSchema);
        work.commit();
        const char* host = (*lease).hostname();
        description_ = std::string("PostgreSQL database ") + (*lease).dbname() + " on " +
                       (host != nullptr && *host != '\0' ? host : "localhost") + ":" + (*lease).port();
    });
}

PostgresStore::~PostgresStore() = default;

std::unique_ptr<PostgresStore::Connection> PostgresStore::connect() const {
    return guarded([&] { return std::make_unique<Connection>(uri_); });
}

std::size_t PostgresStore::addBatch(const IngestBatch& batch) {
    return guarded([&] {
        Lease lease(*this);
        pqxx::work work(*lease);
        const auto recording = work.exec_prepared1("upsert_recording", batch.key.appID, batch.key.recordingID,
                                                   int64_t{batch.key.sessionID}, batch.tabID, nowMilliseconds())[0]
                                   .as<int64_t>();
        std::size_t added = 0;
        for (const DecodedEvent& event : batch.events) {
            const auto result = work.exec_prepared(
                "insert_event", recording, int64_t{event.seqID}, event.time, event.timeOffset, event.type,
                event.summary, event.json, pqxx::binarystring(event.data.data(), event.data.size()));
            if (result.affected_rows() == 0) continue;  // a repeat: its index entries are there already
            ++added;
            if (!event.words.empty())
                work.exec_prepared("insert_words", recording, int64_t{event.seqID},
                                   tsvectorText(event.words));
            for (const RecordingTag& tag : event.tags)
                work.exec_prepared("insert_tag", recording, tag.kind, tag.name, tag.value);
        }
        work.commit();
        return added;
    });
}

std::vector<RecordingSummary> PostgresStore::recordings() const {
    return guarded([&] {
        Lease lease(*this);
        pqxx::read_transaction work(*lease);
        std::vector<RecordingSummary> out;
        for (const auto& row : work.exec_prepared("recordings")) out.push_back(readRecording(row));
        return out;
    });
}

RecordingPage PostgresStore::findRecordings(const RecordingFilter& filter,
                                            std::optional<RecordingCursor> after, std::size_t limit,
                                            std::size_t moments) const {
    const auto text = [](const std::string& value) { return value.empty() ? nullptr : value.c_str(); };
    // Numbers go as text too, printed so that they read back exactly.
    const auto number = [](std::optional<double> value) {
        if (!value) return std::string();
        char printed[32];
        std::snprintf(printed, sizeof printed, "%.17g", *value);
        return std::string(printed);
    };
    const std::string from = number(filter.from), to = number(filter.to);
    const std::string afterSeen = after ? number(after->lastSeen) : "",
                      afterID = after ? std::to_string(after->storeID) : "";
    const std::string rows =
        std::to_string(std::min<std::size_t>(limit, std::numeric_limits<int64_t>::max() - 1) + 1);
    const std::string query = tsqueryText(filter.words);
    const std::vector<const char*> parameters = {text(filter.appID),
                                                 text(filter.userID),
                                                 text(filter.traitName),
                                                 text(filter.traitValue),
                                                 text(from),
                                                 text(to),
                                                 filter.withErrors ? "true" : nullptr,
                                                 text(afterSeen),
                                                 text(afterID),
                                                 rows.c_str(),
                                                 text(query)};
    const bool searching = !filter.words.empty();
    return guarded([&] {
        Lease lease(*this);
        // One snapshot for both statements, so that the moments agree with the counts.
        pqxx::transaction<pqxx::repeatable_read, pqxx::read_only> work(*lease);
        RecordingPage page;
        // Without words the query's parameter ($11) is left off: that statement has ten.
        const auto result = work.exec_prepared(
            searching ? "search_recordings" : "list_recordings",
            pqxx::prepare::make_dynamic_params(parameters.begin(), parameters.end() - (searching ? 0 : 1)));
        for (const auto& row : result)
            page.recordings.push_back({readRecording(row), row[10].as<int64_t>(), {}});
        endPageAt(page, limit);
        if (!searching || moments == 0 || page.recordings.empty()) return page;

        const auto rowsOfMoments = work.exec_prepared(
            "search_moments", query, storeIDList(page, '{', '}'),
            static_cast<int64_t>(std::min<std::size_t>(moments, std::numeric_limits<int64_t>::max())));
        for (const auto& row : rowsOfMoments) {
            addMoment(page, row[0].as<int64_t>(),
                      {static_cast<uint32_t>(row[1].as<int64_t>()), row[2].as<double>(),
                       row[3].as<std::string>(), row[4].as<std::string>()});
        }
        return page;
    });
}

std::optional<RecordingSummary> PostgresStore::recording(const RecordingKey& key) const {
    return guarded([&]() -> std::optional<RecordingSummary> {
        Lease lease(*this);
        pqxx::read_transaction work(*lease);
        const auto result = work.exec_prepared("recording", key.appID, key.recordingID, int64_t{key.sessionID});
        if (result.empty()) return std::nullopt;
        return readRecording(result[0]);
    });
}

std::vector<StoredEvent> PostgresStore::eventPage(const RecordingKey& key, std::optional<uint32_t> after,
                                                  std::size_t limit, bool withData) const {
    return guarded([&] {
        Lease lease(*this);
        pqxx::read_transaction work(*lease);
        const auto result = work.exec_prepared(
            withData ? "event_page_with_data" : "event_page", key.appID, key.recordingID, int64_t{key.sessionID},
            after ? int64_t{*after} : int64_t{-1},
            static_cast<int64_t>(std::min<std::size_t>(limit, std::numeric_limits<int64_t>::max())));
        std::vector<StoredEvent> out;
        out.reserve(result.size());
        for (const auto& row : result) {
            StoredEvent& event = out.emplace_back();
            event.seqID = static_cast<uint32_t>(row[0].as<int64_t>());
            event.time = row[1].as<double>();
            event.timeOffset = row[2].as<double>();
            event.type = row[3].as<std::string>();
            event.summary = row[4].as<std::string>();
            event.json = row[5].as<std::string>();
            if (withData) event.data = pqxx::binarystring(row[6]).str();
        }
        return out;
    });
}

std::optional<std::string> PostgresStore::eventData(const RecordingKey& key, uint32_t seqID,
                                                    std::string_view type) const {
    return guarded([&]() -> std::optional<std::string> {
        Lease lease(*this);
        pqxx::read_transaction work(*lease);
        const auto result = work.exec_prepared("event_data", key.appID, key.recordingID, int64_t{key.sessionID},
                                               int64_t{seqID}, std::string(type));
        if (result.empty()) return std::nullopt;
        return pqxx::binarystring(result[0][0]).str();
    });
}

}  // namespace qlm::ingest
