#include "server/store/FoundPage.h"

#include <utility>

namespace qlm::ingest {

void endPageAt(RecordingPage& page, std::size_t limit) {
    if (page.recordings.size() <= limit) return;
    page.recordings.resize(limit);
    const RecordingSummary& last = page.recordings.back().recording;
    page.next = RecordingCursor{last.lastSeen, last.storeID};
}

std::string storeIDList(const RecordingPage& page, char open, char close) {
    std::string ids(1, open);
    for (const FoundRecording& found : page.recordings)
        ids += (ids.size() > 1 ? "," : "") + std::to_string(found.recording.storeID);
    return ids + close;
}

void addMoment(RecordingPage& page, int64_t storeID, SearchMoment moment) {
    for (FoundRecording& found : page.recordings) {
        if (found.recording.storeID != storeID) continue;
        found.moments.push_back(std::move(moment));
        return;
    }
}

}  // namespace qlm::ingest
