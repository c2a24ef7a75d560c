#pragma once
// The server's storage: recordings and their events in one SQLite database file. One connection,
// guarded by one mutex, so every member is safe from any thread and a batch is stored in one
// transaction that readers never see half of. Failures of the database throw StoreError.
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/ingest/IngestRequest.h"

struct sqlite3;

namespace qlm::ingest {

struct RecordingSummary {
    RecordingKey key;
    std::string tabID;     // as first seen
    double firstSeen = 0;  // server clock, milliseconds since 1970
    double lastSeen = 0;
    int64_t eventCount = 0;
};

struct StoredEvent {
    uint32_t seqID = 0;
    double time = 0;
    double timeOffset = 0;
    std::string type;
    std::string summary;
    std::string json;
};

class RecordingStore {
public:
    // Opens the database at `path`, creating it and its tables when missing.
    explicit RecordingStore(std::string path);
    // A fresh database in a new file under $TMPDIR (or /tmp), removed again by the destructor.
    static std::unique_ptr<RecordingStore> createTemporary();
    ~RecordingStore();
    RecordingStore(const RecordingStore&) = delete;
    RecordingStore& operator=(const RecordingStore&) = delete;

    const std::string& path() const { return path_; }

    // Stores the batch; an event whose seqID the session already has is ignored (first one wins),
    // so an upload sent twice is harmless. Returns how many events were new.
    std::size_t addBatch(const IngestBatch& batch);

    std::vector<RecordingSummary> recordings() const;  // most recently seen first
    std::optional<RecordingSummary> recording(const RecordingKey& key) const;
    std::vector<StoredEvent> events(const RecordingKey& key) const;  // in seqID order
    // The inner message bytes of one event, when the session has that seqID with that type.
    std::optional<std::string> eventData(const RecordingKey& key, uint32_t seqID,
                                         std::string_view type) const;
    // Each event of the session in seqID order with its inner message bytes, one at a time so that a
    // long recording's PDFs are never all in memory. The store is locked meanwhile: `visit` must not
    // call the store.
    void forEachEvent(const RecordingKey& key,
                      const std::function<void(const StoredEvent&, std::string_view data)>& visit) const;

private:
    RecordingStore(std::string path, bool removeOnClose);
    void exec(const char* sql);

    const std::string path_;    // immutable
    const bool removeOnClose_;  // immutable
    mutable std::mutex mutex_;  // serialises every use of db_, transactions included
    sqlite3* db_ = nullptr;     // guarded by mutex_ (set in the constructor, closed in the destructor)
};

}  // namespace qlm::ingest
