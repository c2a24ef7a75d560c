#include "server/store/PostgresStore.h"

#include <chrono>
#include <cstdint>
#include <limits>
#include <pqxx/pqxx>

#include "server/store/StoreError.h"

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
)sql";

constexpr const char* kSelectRecording =
    "SELECT r.appID, r.recordingID, r.sessionID, r.tabID, r.firstSeen, r.lastSeen, "
    "(SELECT count(*) FROM events e WHERE e.recording = r.id) FROM recordings r ";
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
    connection.prepare("recordings", std::string(kSelectRecording) + "ORDER BY r.lastSeen DESC, r.id DESC");
    connection.prepare("recording", std::string(kSelectRecording) +
                                        "WHERE r.appID = $1 AND r.recordingID = $2 AND r.sessionID = $3");
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
            added += static_cast<std::size_t>(result.affected_rows());
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
