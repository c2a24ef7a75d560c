#pragma once
// The embedded store: one SQLite database file, one connection guarded by one mutex.
#include <memory>
#include <mutex>
#include <string>

#include "server/store/RecordingStore.h"

#include "server/store/SqliteStatement.h"

struct sqlite3;

namespace qlm::ingest {

class SqliteStore final : public RecordingStore {
public:
    // Opens the database at `path`, creating it and its tables when missing.
    explicit SqliteStore(std::string path);
    // A fresh database in a new file under $TMPDIR (or /tmp), removed again by the destructor.
    static std::unique_ptr<SqliteStore> createTemporary();
    ~SqliteStore() override;
    SqliteStore(const SqliteStore&) = delete;
    SqliteStore& operator=(const SqliteStore&) = delete;

    const std::string& path() const { return path_; }

    std::string describe() const override { return path_; }
    std::size_t addBatch(const IngestBatch& batch) override;
    std::vector<RecordingSummary> recordings() const override;
    RecordingPage findRecordings(const RecordingFilter& filter, std::optional<RecordingCursor> after,
                                 std::size_t limit, std::size_t moments) const override;
    std::optional<RecordingSummary> recording(const RecordingKey& key) const override;
    std::vector<StoredEvent> eventPage(const RecordingKey& key, std::optional<uint32_t> after,
                                       std::size_t limit, bool withData) const override;
    std::optional<std::string> eventData(const RecordingKey& key, uint32_t seqID,
                                         std::string_view type) const override;

private:
    SqliteStore(std::string path, bool removeOnClose);
    void exec(const char* sql);
    // Within addBatch's transaction: the words and tags of a newly stored event.
    void index(int64_t recording, int64_t eventRow, const DecodedEvent& event);

    const std::string path_;    // immutable
    const bool removeOnClose_;  // immutable
    mutable std::mutex mutex_;  // serialises every use of db_, transactions included
    sqlite3* db_ = nullptr;     // guarded by mutex_ (set in the constructor, closed in the destructor)
    // addBatch's statements on db_, prepared by the constructor; guarded by mutex_.
    std::unique_ptr<SqliteStatement> upsertRecording_;
    std::unique_ptr<SqliteStatement> insertEvent_;
    std::unique_ptr<SqliteStatement> insertWords_;
    std::unique_ptr<SqliteStatement> insertTag_;
};

}  // namespace qlm::ingest
