#include "server/views/NetworkExchange.h"

#include <cmath>

#include "server/views/MessageFields.h"

namespace qlm::ingest {

double sessionTime(const StoredEvent& event) {
    return std::isfinite(event.timeOffset) ? event.timeOffset : 0;
}

void NetworkExchange::addRequest(const nlohmann::json& message, const StoredEvent& event) {
    t = sessionTime(event);
    if (std::isfinite(event.time)) startedAt = event.time;
    method = fields::enumName(message, "method", "GET");
    url = fields::text(message, "url");
    requestHeaders = fields::stringMap(message, "headers");
    requestBody = fields::bodyText(message);
}

void NetworkExchange::addResponse(const nlohmann::json& message, const StoredEvent& event) {
    end = sessionTime(event);
    // The library sends the elapsed seconds divided by 1000.
    durationMs = fields::number(message, "duration") * 1e6;
    if (!t) t = end;  // its request was not recorded
    if (!startedAt && std::isfinite(event.time)) startedAt = event.time - *durationMs;
    if (!method) method = fields::enumName(message, "method", "GET");
    // The response's address is where a redirect ended; the request's is what was asked for.
    if (!url) url = fields::text(message, "url");
    status = fields::whole(message, "status");
    responseHeaders = fields::stringMap(message, "headers");
    responseBody = fields::bodyText(message);
}

}  // namespace qlm::ingest
