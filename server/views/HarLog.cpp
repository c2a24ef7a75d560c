#include "server/views/HarLog.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "server/http/HttpRequest.h"
#include "server/http/HttpResponse.h"
#include "server/http/QueryString.h"
#include "server/views/MessageFields.h"
#include "server/views/TimeText.h"

namespace qlm::ingest {

using nlohmann::json;

namespace {

constexpr const char* kPageID = "page_1";

json headerList(const json& headers) {
    json list = json::array();
    if (!headers.is_object()) return list;
    for (const auto& [name, value] : headers.items()) list.push_back({{"name", name}, {"value", value}});
    return list;
}

// A header's value whatever the case of its name; empty when absent.
std::string headerValue(const json& headers, std::string_view wanted) {
    if (!headers.is_object()) return {};
    for (const auto& [name, value] : headers.items()) {
        if (value.is_string() && equalsIgnoringCase(name, wanted)) return value.get<std::string>();
    }
    return {};
}

// The pairs of the address's query, decoded where their escapes allow it.
json queryList(const std::string& url) {
    json list = json::array();
    const auto question = url.find('?');
    if (question == std::string::npos) return list;
    const std::string query = url.substr(question + 1, url.find('#', question) - question - 1);
    if (const auto pairs = parseQuery(query)) {
        for (const auto& [name, value] : *pairs) list.push_back({{"name", name}, {"value", value}});
    }
    return list;
}

std::string iso(double milliseconds) {
    return utcText(milliseconds, true);
}

}  // namespace

HarLog::HarLog(RecordingSummary recording, std::string creatorVersion)
    : recording_(std::move(recording)), creatorVersion_(std::move(creatorVersion)) {}

std::string HarLog::begin() {
    const json creator = {{"name", "quillmere-ingest"}, {"version", creatorVersion_}};
    return R"({"log":{"version":"1.2","creator":)" + creator.dump() + R"(,"entries":[)";
}

std::string HarLog::add(const StoredEvent& event) {
    if (!sessionStart_ && std::isfinite(event.time)) sessionStart_ = event.time - sessionTime(event);
    const bool request = event.type == kRequestType;
    if (!request && event.type != kResponseType) return {};
    const json message = json::parse(event.json, nullptr, false);
    if (!message.is_object()) return {};
    const std::string reqId = fields::text(message, "reqId");
    if (request) {
        held_.push_back({reqId});
        held_.back().addRequest(message, event);
        open_[reqId] = &held_.back();
    } else if (const auto it = open_.find(reqId); it != open_.end()) {
        it->second->addResponse(message, event);
        open_.erase(it);
    } else {
        held_.push_back({reqId});  // its request came before capture began
        held_.back().addResponse(message, event);
    }
    return release(false);
}

std::string HarLog::end() {
    std::string out = release(true);
    const double start = sessionStart_.value_or(recording_.firstSeen);
    const json page = {{"startedDateTime", iso(start)},
                       {"id", kPageID},
                       {"title", recording_.key.appID + " · recording " + recording_.key.recordingID +
                                     " · session " + std::to_string(recording_.key.sessionID)},
                       {"pageTimings", {{"onContentLoad", -1}, {"onLoad", -1}}}};
    return out + R"(],"pages":[)" + page.dump(-1, ' ', false, json::error_handler_t::replace) + "]}}";
}

std::string HarLog::release(bool all) {
    std::string out;
    while (!held_.empty() && (all || held_.front().hasResponse() || held_.size() > kMaxHeldExchanges)) {
        const NetworkExchange& exchange = held_.front();
        if (const auto it = open_.find(exchange.reqId); it != open_.end() && it->second == &exchange)
            open_.erase(it);
        out += (written_++ == 0 ? "" : ",") + entry(exchange);
        held_.pop_front();
    }
    return out;
}

std::string HarLog::entry(const NetworkExchange& exchange) const {
    const std::string url = exchange.url.value_or("");
    json request = {{"method", exchange.method.value_or("GET")},
                    {"url", url},
                    {"httpVersion", ""},
                    {"cookies", json::array()},
                    {"headers", headerList(exchange.requestHeaders)},
                    {"queryString", queryList(url)},
                    {"headersSize", -1},
                    {"bodySize", 0}};
    if (exchange.requestBody.is_string()) {
        const auto& body = exchange.requestBody.get_ref<const std::string&>();
        request["postData"] = {{"mimeType", headerValue(exchange.requestHeaders, "content-type")},
                               {"text", body}};
        request["bodySize"] = body.size();
    }

    const bool answered = exchange.hasResponse();
    const int64_t status = exchange.status.value_or(0);
    const std::string mimeType = headerValue(exchange.responseHeaders, "content-type");
    json content = {{"size", 0}, {"mimeType", mimeType.empty() ? "x-unknown" : mimeType}};
    int64_t bodySize = -1;
    if (exchange.responseBody.is_string()) {
        const auto& body = exchange.responseBody.get_ref<const std::string&>();
        content["size"] = body.size();
        content["text"] = body;
        bodySize = static_cast<int64_t>(body.size());
    }
    const std::string_view phrase = reasonPhrase(static_cast<int>(status));
    json response = {{"status", status},
                     {"statusText", answered && phrase != "Unknown" ? std::string(phrase) : ""},
                     {"httpVersion", ""},
                     {"cookies", json::array()},
                     {"headers", headerList(exchange.responseHeaders)},
                     {"content", std::move(content)},
                     {"redirectURL", headerValue(exchange.responseHeaders, "location")},
                     {"headersSize", -1},
                     {"bodySize", bodySize}};
    if (!answered) response["_error"] = "no response was recorded";

    // The library measures one span from the request's start to its response; DevTools shows an
    // entry's time as its phases laid end to end, so the whole span is the wait.
    const double duration = answered ? std::max(0.0, exchange.durationMs.value_or(0)) : 0;
    const double startedAt = exchange.startedAt.value_or(sessionStart_.value_or(recording_.firstSeen));
    const json entry = {{"pageref", kPageID},
                        {"startedDateTime", iso(startedAt)},
                        {"time", duration},
                        {"request", std::move(request)},
                        {"response", std::move(response)},
                        {"cache", json::object()},
                        {"timings",
                         {{"blocked", -1},
                          {"dns", -1},
                          {"connect", -1},
                          {"ssl", -1},
                          {"send", 0},
                          {"wait", duration},
                          {"receive", 0}}},
                        {"_resourceType", "fetch"},
                        {"_reqId", exchange.reqId}};
    return entry.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace qlm::ingest
