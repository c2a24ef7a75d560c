#include "server/store/RecordingStore.h"

#include <limits>

#include "server/store/PostgresStore.h"
#include "server/store/SqliteStore.h"

namespace qlm::ingest {

namespace {

// Screen captures are a few hundred KiB: a page of them stays within a few MiB.
constexpr std::size_t kEventsWithDataPerPage = 16;

}  // namespace

void RecordingStore::forEachEvent(
    const RecordingKey& key,
    const std::function<void(const StoredEvent&, std::string_view data)>& visit) const {
    std::optional<uint32_t> after;
    while (true) {
        const auto page = eventPage(key, after, kEventsWithDataPerPage, true);
        for (const StoredEvent& event : page) visit(event, event.data);
        if (page.size() < kEventsWithDataPerPage) return;
        after = page.back().seqID;
    }
}

std::vector<StoredEvent> RecordingStore::events(const RecordingKey& key) const {
    return eventPage(key, std::nullopt, std::numeric_limits<std::size_t>::max());
}

std::unique_ptr<RecordingStore> openStore(const std::string& database) {
    if (database.starts_with("postgresql://") || database.starts_with("postgres://")) {
        return std::make_unique<PostgresStore>(database);
    }
    return std::make_unique<SqliteStore>(database);
}

}  // namespace qlm::ingest
