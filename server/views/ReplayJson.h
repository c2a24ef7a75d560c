#pragma once
// The document the replay page plays from: a session's stored events arranged by what the player
// shows, each placed on one timeline in milliseconds since the session began (the envelope's
// timeOffset):
//
//   {"appID","recordingID","sessionID","tabID","startTime" (wall clock of offset 0, or null),
//    "duration", "eventsPage", "eventsJson", "next" (the cursor of the next page, or null),
//    "device": {"deviceType","deviceName","manufacturer","release","sdkVersion"} or null,
//    "user": {"userID","name","email","isAnonymous","traits"} or null,        (the last identify)
//    "frames":  [{"seqID","t","width","height","size","url"}],
//    "strokes": [{"start","end","ended","points":[{"t","x","y","phase"}]}],   (phase DOWN|MOVE|UP)
//    "logs":    [{"seqID","t","level","text"}],
//    "network": [{"reqId","t","end","method","url","status","durationMs","requestHeaders",
//                 "responseHeaders","requestBody","responseBody"}],  (missing halves are null)
//    "problems":[{"seqID","t","type","reason"}]}
//
// One page of events at a time: a stroke that goes on from an earlier page starts without its DOWN,
// and an exchange whose other half is on another page has nulls there; the page joins them.
// A stored event that cannot be read as its type lands in "problems" and nowhere else, so one bad
// row never hides the rest. A pure function.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/store/RecordingStore.h"

namespace qlm::ingest {

std::string replayJson(const RecordingSummary& recording, const std::vector<StoredEvent>& events,
                       std::optional<uint32_t> next = std::nullopt);

}  // namespace qlm::ingest
