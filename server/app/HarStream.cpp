#include "server/app/HarStream.h"

namespace qlm::ingest {

namespace {

// Without their data, events are small: a page of them is a few hundred KiB at most.
constexpr std::size_t kEventsPerPiece = 1000;

}  // namespace

HarStream::HarStream(const RecordingStore& store, const RecordingSummary& recording)
    : store_(store), key_(recording.key), log_(recording, QLM_INGEST_VERSION) {}

std::optional<std::string> HarStream::next() {
    if (ended_) return std::nullopt;
    if (!begun_) {
        begun_ = true;
        return log_.begin();
    }
    const auto page = store_.eventPage(key_, after_, kEventsPerPiece);
    if (page.empty()) {
        ended_ = true;
        return log_.end();
    }
    std::string piece;
    for (const StoredEvent& event : page) piece += log_.add(event);
    after_ = page.back().seqID;
    return piece;
}

}  // namespace qlm::ingest
