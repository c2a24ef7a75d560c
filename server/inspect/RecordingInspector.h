#pragma once
// The recording inspector behind `quillmere-ingest inspect` and `check-privacy`: reads a store and
// writes lines for people and scripts. Each run reads one store from one thread.
#include <iosfwd>
#include <string>
#include <string_view>

#include "server/store/RecordingStore.h"

namespace qlm::ingest {

// Exit codes of both commands.
inline constexpr int kInspectOK = 0;
inline constexpr int kSecretFound = 1;    // check-privacy: the secret was recorded (or a frame is unreadable)
inline constexpr int kInspectFailed = 2;  // no such recording, or the store could not be read

// Writes every event of the store's recordings (only those with that recordingID when it is not
// empty) as one JSON object per line, in recording then seqID order:
//   {"appID","recordingID","sessionID","seqID","time","timeOffset","type","message"}
// where "message" is the inner message decoded from its stored bytes, a screen capture's PDF
// replaced by {"size","pages","text"}, and null (with an "error") for bytes that do not decode.
int inspectRecordings(const RecordingStore& store, const std::string& recordingID, std::ostream& out,
                      std::ostream& err);

// Looks for `secret` in every event as inspectRecordings selects them: the page text of a screen
// capture (with runs of white space taken as one space on both sides, as text extraction spaces
// words its own way), or any text field of any other message, also inside a JSON text such a field
// holds (bodies are JSON-escaped). An event whose bytes do not decode, or a capture poppler cannot
// read, counts as a sighting: what cannot be read cannot be shown clean. Writes one line per
// sighting and a verdict line; kSecretFound when there was any sighting.
int checkPrivacy(const RecordingStore& store, const std::string& secret, const std::string& recordingID,
                 std::ostream& out, std::ostream& err);

}  // namespace qlm::ingest
