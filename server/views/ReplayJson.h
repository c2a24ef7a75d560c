#pragma once
// The document the replay page plays from: a session's stored events arranged by what the player
// shows, each placed on one timeline in milliseconds since the session began (the envelope's
// timeOffset):
//
//   {"appID","recordingID","sessionID","tabID","startTime" (wall clock of offset 0, or null),
//    "duration", "eventsPage", "eventsJson",
//    "device": {"deviceType","deviceName","manufacturer","release","sdkVersion"} or null,
//    "user": {"userID","name","email","isAnonymous","traits"} or null,        (the last identify)
//    "frames":  [{"seqID","t","width","height","size","url"}],
//    "strokes": [{"start","end","ended","points":[{"t","x","y","phase"}]}],   (phase DOWN|MOVE|UP)
//    "logs":    [{"seqID","t","level","text"}],
//    "network": [{"reqId","t","end","method","url","status","durationMs","requestHeaders",
//                 "responseHeaders","requestBody","responseBody"}],  (missing halves are null)
//    "problems":[{"seqID","t","type","reason"}]}
//
// A stored event that cannot be read as its type lands in "problems" and nowhere else, so one bad
// row never hides the rest. A pure function.
#include <string>
#include <string_view>
#include <vector>

#include "server/store/RecordingStore.h"

namespace qlm::ingest {

std::string replayJson(const RecordingSummary& recording, const std::vector<StoredEvent>& events);

}  // namespace qlm::ingest
