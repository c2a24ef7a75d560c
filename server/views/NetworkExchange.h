#pragma once
// One HTTP exchange as the library recorded it: a qm.network.RequestEvent and a ResponseEvent that
// share a reqId ("ios-N"), either of which may be missing (a request that had no answer before the
// recording stopped, a response to a request made before capture began). Every view that shows
// exchanges fills them here, so that all place and time them alike. Not thread-safe; a value.
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "server/store/RecordingStore.h"

namespace qlm::ingest {

struct NetworkExchange {
    std::string reqId;
    // Milliseconds since the session began: when it started (its request; the response when the
    // request is missing) and when the response came.
    std::optional<double> t{}, end{};
    // The wall clock of its start: the request event's time, or the response's less the duration.
    std::optional<double> startedAt{};
    std::optional<std::string> method{};  // "GET", "POST", ...
    // The request's address; the response's (where a redirect ended) only when the request is missing.
    std::optional<std::string> url{};
    std::optional<int64_t> status{};
    std::optional<double> durationMs{};
    // Objects of strings, and texts; null where that half is missing or no body was captured.
    nlohmann::json requestHeaders = nullptr, responseHeaders = nullptr;
    nlohmann::json requestBody = nullptr, responseBody = nullptr;

    bool hasRequest() const { return !requestHeaders.is_null(); }
    bool hasResponse() const { return status.has_value(); }

    // `message` is the event's stored JSON, parsed; `event` gives its times.
    void addRequest(const nlohmann::json& message, const StoredEvent& event);
    void addResponse(const nlohmann::json& message, const StoredEvent& event);
};

inline constexpr const char* kRequestType = "qm.network.RequestEvent";
inline constexpr const char* kResponseType = "qm.network.ResponseEvent";

// The session time of a stored event: its timeOffset, or 0 when that is no number.
double sessionTime(const StoredEvent& event);

}  // namespace qlm::ingest
