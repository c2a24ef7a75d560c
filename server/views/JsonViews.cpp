#include "server/views/JsonViews.h"

#include <nlohmann/json.hpp>

#include "server/views/HtmlPages.h"
#include "server/views/ListingPage.h"

namespace qlm::ingest {

using nlohmann::json;

std::string recordingsJson(const RecordingPage& page, const std::string& queryText) {
    json list = json::array();
    for (const FoundRecording& found : page.recordings) {
        const RecordingSummary& r = found.recording;
        json moments = json::array();
        for (const SearchMoment& m : found.moments) {
            moments.push_back({{"seqID", m.seqID},
                               {"t", m.timeOffset},
                               {"kind", momentKind(m.type)},
                               {"type", m.type},
                               {"summary", m.summary},
                               {"url", momentLink(r.key, m, queryText)}});
        }
        list.push_back({{"appID", r.key.appID},
                        {"recordingID", r.key.recordingID},
                        {"sessionID", r.key.sessionID},
                        {"tabID", r.tabID},
                        {"firstSeen", r.firstSeen},
                        {"lastSeen", r.lastSeen},
                        {"eventCount", r.eventCount},
                        {"hasErrors", r.hasErrors},
                        {"userIDs", r.userIDs},
                        {"url", recordingPath(r.key)},
                        {"hits", found.hits},
                        {"moments", std::move(moments)}});
    }
    return json{{"recordings", std::move(list)},
                {"next", page.next ? json(cursorText(*page.next)) : json(nullptr)}}
        .dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string eventsJson(const RecordingSummary& recording, const std::vector<StoredEvent>& events,
                       std::optional<uint32_t> next) {
    json list = json::array();
    for (const StoredEvent& e : events) {
        // Stored JSON was printed by protobuf from a decoded message, so it parses; a damaged row
        // shows as null rather than failing the whole view.
        json message = json::parse(e.json, nullptr, false);
        if (message.is_discarded()) message = nullptr;
        list.push_back({{"seqID", e.seqID},
                        {"time", e.time},
                        {"timeOffset", e.timeOffset},
                        {"type", e.type},
                        {"message", std::move(message)}});
    }
    return json{{"appID", recording.key.appID},
                {"recordingID", recording.key.recordingID},
                {"sessionID", recording.key.sessionID},
                {"tabID", recording.tabID},
                {"events", std::move(list)},
                {"next", next ? json(*next) : json(nullptr)}}
        .dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string dashboardRelayJson(const std::string& dashboardURL) {
    return json::array({{{"type", "DASHBOARD_URL"}, {"data", {{"dashboardURL", dashboardURL}}}}})
        .dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace qlm::ingest
