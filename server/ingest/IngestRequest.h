#pragma once
// Decoding of one upload: the query that names the recording and the body, a qm.EventList whose
// events carry inner messages. All or nothing: any fault anywhere rejects the whole request, so
// that a rejected upload stores nothing. A pure function of its input, safe from any thread.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/ingest/EventIndex.h"

namespace qlm::ingest {

inline constexpr std::size_t kMaxIdentifierBytes = 256;

// A number as the query and the routes write it: 1 to 10 decimal digits, at most 2^32 - 1.
std::optional<uint32_t> parseUint32(std::string_view text);

// One recording session as the upload's query names it ("a", "r", "s"), with its tab ("t").
struct RecordingKey {
    std::string appID;
    std::string recordingID;
    uint32_t sessionID = 0;

    bool operator==(const RecordingKey&) const = default;
};

struct DecodedEvent {
    uint32_t seqID = 0;
    double time = 0;        // milliseconds since 1970
    double timeOffset = 0;  // milliseconds since the session began
    std::string type;       // one of knownEventTypes()
    std::string data;       // the inner message's bytes as received
    std::string json;       // renderEventJson() of the inner message
    std::string summary;    // summarizeEvent() of the inner message
    std::string words;      // indexEvent(): what the event showed, as the text index holds it
    std::vector<RecordingTag> tags;  // indexEvent(): what the listing filters its recording by
};

struct IngestBatch {
    RecordingKey key;
    std::string tabID;
    std::vector<DecodedEvent> events;  // in the order of the body; never empty
};

struct IngestDecoding {
    std::optional<IngestBatch> batch;  // set when the request is accepted
    std::string error;                 // why it was not, for the 400 reply; empty when accepted
};

// `rawQuery` is the text after '?', still percent-encoded.
IngestDecoding decodeIngestRequest(std::string_view rawQuery, std::string_view body);

}  // namespace qlm::ingest
