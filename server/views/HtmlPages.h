#pragma once
// The dashboard's HTML pages: documents without scripts, styled by /assets/pages.css, in which
// every stored text is escaped. Pure functions.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/store/RecordingStore.h"

namespace qlm::ingest {

// A whole page around `content` (HTML), titled with `title` (text).
std::string htmlDocument(std::string_view title, const std::string& content);

// "/<appID>/s/<recordingID>/<sessionID>", each identifier percent-encoded.
std::string recordingPath(const RecordingKey& key);

// One page of the session's events; `next`, when set, is linked as the following page.
std::string recordingPage(const RecordingSummary& recording, const std::vector<StoredEvent>& events,
                          std::optional<uint32_t> next = std::nullopt);
std::string notFoundPage(std::string_view message);

std::string escapeHtml(std::string_view text);

}  // namespace qlm::ingest
