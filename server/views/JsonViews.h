#pragma once
// The dashboard's JSON documents. Stored event JSON is embedded as parsed values, not as strings.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "server/store/RecordingStore.h"

namespace qlm::ingest {

// One page of the listing:
// {"recordings":[{"appID","recordingID","sessionID","tabID","firstSeen","lastSeen","eventCount","hasErrors",
//                 "userIDs","url","hits","moments":[{"seqID","t","kind","type","summary","url"}]}],
//  "next"}: "next" is the cursor of the following page (?after=), or null. `queryText` is the search
// box's text, which the moments' links carry to the replay page.
std::string recordingsJson(const RecordingPage& page, const std::string& queryText);

// {"appID","recordingID","sessionID","tabID","events":[{"seqID","time","timeOffset","type","message"}],
//  "next"}: one page of events; "next" is the cursor of the following page (?after=), or null.
std::string eventsJson(const RecordingSummary& recording, const std::vector<StoredEvent>& events,
                       std::optional<uint32_t> next = std::nullopt);

// The reply to an accepted upload: one relay message that names the dashboard.
std::string dashboardRelayJson(const std::string& dashboardURL);

}  // namespace qlm::ingest
