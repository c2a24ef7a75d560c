#pragma once
// The server's storage: recordings and their events. Two implementations, SqliteStore (an embedded
// file, the default) and PostgresStore (shared by several server processes); openStore() picks one.
// Every member is safe from any thread; a batch is stored in one transaction that readers never
// see half of, and a session's seqIDs are unique by a constraint of the database. Failures of the
// database throw StoreError.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/ingest/IngestRequest.h"

namespace qlm::ingest {

struct RecordingSummary {
    RecordingKey key;
    std::string tabID;     // as first seen
    double firstSeen = 0;  // server clock, milliseconds since 1970
    double lastSeen = 0;
    int64_t eventCount = 0;
    int64_t storeID = 0;                 // the store's own number for it, which list cursors name
    bool hasErrors = false;              // an ERROR log line or a 5xx response
    std::vector<std::string> userIDs{};  // of its identify events, in no particular order
};

// Which recordings the listing shows; a field left empty lets every recording through.
struct RecordingFilter {
    std::string appID{};
    std::string userID{};                   // one of the recording's userIDs
    std::string traitName{}, traitValue{};  // a trait of one of its users; traitValue empty: any value
    std::optional<double> from{}, to{};     // seen at some time within, by the server clock (ms)
    bool withErrors = false;
    // searchWords() of a query: each begins a word that one and the same event showed.
    std::vector<std::string> words{};
};

// Where a page of the listing, newest first, ends: the last recording's lastSeen and storeID.
struct RecordingCursor {
    double lastSeen = 0;
    int64_t storeID = 0;
};

// An event whose words matched a query.
struct SearchMoment {
    uint32_t seqID = 0;
    double timeOffset = 0;
    std::string type;
    std::string summary;
};

struct FoundRecording {
    RecordingSummary recording;
    int64_t hits = 0;                     // events that matched the query's words; 0 without words
    std::vector<SearchMoment> moments{};  // the first of them in time order, up to the asked number
};

struct RecordingPage {
    std::vector<FoundRecording> recordings;  // most recently seen first
    std::optional<RecordingCursor> next{};   // where the following page starts, when there is one
};

struct StoredEvent {
    uint32_t seqID = 0;
    double time = 0;
    double timeOffset = 0;
    std::string type;
    std::string summary;
    std::string json;
    std::string data{};  // the inner message's bytes; empty unless asked for
};

class RecordingStore {
public:
    virtual ~RecordingStore() = default;

    // Where the data lives, for messages: a path, or a connection string without its password.
    virtual std::string describe() const = 0;

    // Stores the batch; an event whose seqID the session already has is ignored (first one wins),
    // so an upload sent twice, or to two servers, is harmless. The new events' words and tags go
    // into the index in the same transaction. Returns how many events were new.
    virtual std::size_t addBatch(const IngestBatch& batch) = 0;

    virtual std::vector<RecordingSummary> recordings() const = 0;  // most recently seen first
    // At most `limit` recordings that pass the filter, most recently seen first, after the cursor
    // (from the newest when nullopt). With words, each comes with up to `moments` of its matches.
    virtual RecordingPage findRecordings(const RecordingFilter& filter, std::optional<RecordingCursor> after,
                                         std::size_t limit, std::size_t moments) const = 0;
    virtual std::optional<RecordingSummary> recording(const RecordingKey& key) const = 0;
    // At most `limit` events of the session with a seqID above `after` (from the first when
    // nullopt), in seqID order; `data` is filled only `withData`.
    virtual std::vector<StoredEvent> eventPage(const RecordingKey& key, std::optional<uint32_t> after,
                                               std::size_t limit, bool withData = false) const = 0;
    // The inner message bytes of one event, when the session has that seqID with that type.
    virtual std::optional<std::string> eventData(const RecordingKey& key, uint32_t seqID,
                                                 std::string_view type) const = 0;

    // Each event of the session in seqID order with its inner message bytes, a few at a time so
    // that a long recording's PDFs are never all in memory. `visit` may call the store.
    void forEachEvent(const RecordingKey& key,
                      const std::function<void(const StoredEvent&, std::string_view data)>& visit) const;
    // Every event of the session at once: for tests and tools that know the session is small.
    std::vector<StoredEvent> events(const RecordingKey& key) const;
};

// `database` "postgresql://..." (or "postgres://...") opens a PostgresStore, anything else is the
// path of an SQLite file; the tables are made when missing.
std::unique_ptr<RecordingStore> openStore(const std::string& database);

}  // namespace qlm::ingest
