#pragma once
// The dashboard's JSON documents. Stored event JSON is embedded as parsed values, not as strings.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "server/store/RecordingStore.h"

namespace qlm::ingest {

// {"recordings":[{"appID","recordingID","sessionID","tabID","firstSeen","lastSeen","eventCount","url"}]}
std::string recordingsJson(const std::vector<RecordingSummary>& recordings);

// {"appID","recordingID","sessionID","tabID","events":[{"seqID","time","timeOffset","type","message"}],
//  "next"}: one page of events; "next" is the cursor of the following page (?after=), or null.
std::string eventsJson(const RecordingSummary& recording, const std::vector<StoredEvent>& events,
                       std::optional<uint32_t> next = std::nullopt);

// The reply to an accepted upload: one relay message that names the dashboard.
std::string dashboardRelayJson(const std::string& dashboardURL);

}  // namespace qlm::ingest
