#pragma once
// The dashboard's HTML pages: self-contained documents (inline style, no scripts, no external
// assets) in which every stored text is escaped. Pure functions.
#include <string>
#include <string_view>
#include <vector>

#include "server/store/RecordingStore.h"

namespace qlm::ingest {

// "/<appID>/s/<recordingID>/<sessionID>", each identifier percent-encoded.
std::string recordingPath(const RecordingKey& key);

std::string recordingListPage(const std::vector<RecordingSummary>& recordings);
std::string recordingPage(const RecordingSummary& recording, const std::vector<StoredEvent>& events);
std::string notFoundPage(std::string_view message);

std::string escapeHtml(std::string_view text);

}  // namespace qlm::ingest
