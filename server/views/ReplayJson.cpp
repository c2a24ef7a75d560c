#include "server/views/ReplayJson.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "server/ingest/ValueText.h"
#include "server/views/HtmlPages.h"
#include "server/views/MessageFields.h"
#include "server/views/NetworkExchange.h"

namespace qlm::ingest {

using nlohmann::json;

namespace {

using fields::enumName;
using fields::flag;
using fields::number;
using fields::stringMap;
using fields::text;
using fields::whole;

struct Point {
    double t, x, y;
    const char* phase;
};

struct Stroke {
    std::vector<Point> points;
    bool ended = false;
};

// Touch reports carry no identity of their touch; with more than one finger down, a report goes to
// the open stroke whose last point lies nearest.
Stroke* nearestOpen(std::vector<Stroke>& strokes, double x, double y) {
    Stroke* best = nullptr;
    double bestDistance = 0;
    for (Stroke& stroke : strokes) {
        if (stroke.ended || stroke.points.empty()) continue;
        const Point& last = stroke.points.back();
        const double distance = std::hypot(last.x - x, last.y - y);
        if (best == nullptr || distance < bestDistance) {
            best = &stroke;
            bestDistance = distance;
        }
    }
    return best;
}

void addTouch(std::vector<Stroke>& strokes, const json& message, double t) {
    const std::string type = enumName(message, "type", "DOWN");
    const double x = number(message, "x"), y = number(message, "y");
    if (type == "DOWN") {
        strokes.push_back({{{t, x, y, "DOWN"}}, false});
        return;
    }
    if (type == "UP") {
        Stroke* stroke = nearestOpen(strokes, x, y);
        if (stroke == nullptr) stroke = &strokes.emplace_back();  // its DOWN was never recorded
        stroke->points.push_back({t, x, y, "UP"});
        stroke->ended = true;
        return;
    }
    // A MOVE carries its newest sample in x, y and eventTime and the older ones in moves. Their
    // eventTimes are uptime, not wall clock: only their distance from the head's eventTime is used,
    // counted back from the envelope's time, which is when the head was taken.
    const double headTime = number(message, "eventTime");
    std::vector<Point> samples;
    if (const auto moves = message.find("moves"); moves != message.end() && moves->is_array()) {
        for (const json& move : *moves) {
            if (!move.is_object()) continue;
            const double sampleTime = t + (number(move, "eventTime") - headTime);
            samples.push_back({std::clamp(sampleTime, 0.0, t), number(move, "x"), number(move, "y"), "MOVE"});
        }
    }
    samples.push_back({t, x, y, "MOVE"});
    Stroke* stroke = nearestOpen(strokes, samples.front().x, samples.front().y);
    if (stroke == nullptr) stroke = &strokes.emplace_back();
    stroke->points.insert(stroke->points.end(), samples.begin(), samples.end());
}

json strokeJson(const Stroke& stroke) {
    json points = json::array();
    for (const Point& p : stroke.points)
        points.push_back({{"t", p.t}, {"x", p.x}, {"y", p.y}, {"phase", p.phase}});
    return {{"start", stroke.points.front().t},
            {"end", stroke.points.back().t},
            {"ended", stroke.ended},
            {"points", std::move(points)}};
}

template <typename T>
json orNull(const std::optional<T>& value) {
    return value ? json(*value) : json(nullptr);
}

json exchangeJson(const NetworkExchange& exchange) {
    return {{"reqId", exchange.reqId},
            {"t", orNull(exchange.t)},
            {"end", orNull(exchange.end)},
            {"method", orNull(exchange.method)},
            {"url", orNull(exchange.url)},
            {"status", orNull(exchange.status)},
            {"durationMs", orNull(exchange.durationMs)},
            {"requestHeaders", exchange.requestHeaders},
            {"responseHeaders", exchange.responseHeaders},
            {"requestBody", exchange.requestBody},
            {"responseBody", exchange.responseBody}};
}

}  // namespace

std::string replayJson(const RecordingSummary& recording, const std::vector<StoredEvent>& events,
                       std::optional<uint32_t> next) {
    const std::string base = recordingPath(recording.key);
    json frames = json::array(), logs = json::array(), problems = json::array();
    std::vector<NetworkExchange> network;
    json device = nullptr, user = nullptr;
    std::vector<Stroke> strokes;
    std::map<std::string, std::size_t> networkIndex;  // reqId -> position in `network`
    std::optional<double> startTime;
    double duration = 0;

    const auto exchangeFor = [&](const json& message) -> NetworkExchange& {
        const std::string reqId = text(message, "reqId");
        const auto [it, added] = networkIndex.try_emplace(reqId, network.size());
        if (added) network.push_back({reqId});
        return network[it->second];
    };

    for (const StoredEvent& event : events) {
        const double t = sessionTime(event);
        const json message = json::parse(event.json, nullptr, false);
        if (!message.is_object()) {
            problems.push_back({{"seqID", event.seqID},
                                {"t", t},
                                {"type", event.type},
                                {"reason", "the stored message is not readable"}});
            continue;
        }
        duration = std::max(duration, t);
        if (!startTime && std::isfinite(event.time)) startTime = event.time - t;

        if (event.type == "qm.ios.PDFViewCapture") {
            const auto pdf = message.find("pdfData");
            frames.push_back({{"seqID", event.seqID},
                              {"t", t},
                              {"width", whole(message, "width")},
                              {"height", whole(message, "height")},
                              {"size", pdf != message.end() && pdf->is_object() ? whole(*pdf, "size") : 0},
                              {"url", base + "/frames/" + std::to_string(event.seqID) + ".pdf"}});
        } else if (event.type == "qm.ios.TouchEvent") {
            addTouch(strokes, message, t);
        } else if (event.type == "qm.core.LogEvent") {
            std::string line;
            if (const auto args = message.find("args"); args != message.end() && args->is_array()) {
                for (const json& arg : *args) {
                    if (!arg.is_object()) continue;
                    if (!line.empty()) line += ' ';
                    line += valueText(text(arg, "arson"));
                }
            }
            logs.push_back({{"seqID", event.seqID},
                            {"t", t},
                            {"level", enumName(message, "logLevel", "DEBUG")},
                            {"text", std::move(line)}});
        } else if (event.type == kRequestType) {
            exchangeFor(message).addRequest(message, event);
        } else if (event.type == kResponseType) {
            exchangeFor(message).addResponse(message, event);
        } else if (event.type == "qm.Identify") {
            user = {{"userID", text(message, "userID")},
                    {"name", text(message, "name")},
                    {"email", text(message, "email")},
                    {"isAnonymous", flag(message, "isAnonymous")},
                    {"traits", stringMap(message, "traits")}};
        } else if (event.type == "qm.Metadata") {
            const auto info = message.find("deviceInfo");
            const json empty = json::object();
            const json& deviceInfo = info != message.end() && info->is_object() ? *info : empty;
            device = {{"deviceType", enumName(deviceInfo, "deviceType", "ANDROID")},
                      {"deviceName", text(deviceInfo, "deviceName")},
                      {"manufacturer", text(deviceInfo, "manufacturer")},
                      {"release", text(deviceInfo, "release")},
                      {"sdkVersion", text(message, "sdkVersion")}};
        } else {
            problems.push_back(
                {{"seqID", event.seqID}, {"t", t}, {"type", event.type}, {"reason", "unknown type"}});
        }
    }

    json strokeList = json::array();
    for (const Stroke& stroke : strokes) {
        if (!stroke.points.empty()) strokeList.push_back(strokeJson(stroke));
    }
    // Network rows in the order their exchanges began, which a late response would otherwise upset.
    std::stable_sort(network.begin(), network.end(),
                     [](const NetworkExchange& a, const NetworkExchange& b) { return a.t < b.t; });
    json exchanges = json::array();
    for (const NetworkExchange& exchange : network) exchanges.push_back(exchangeJson(exchange));

    return json{{"appID", recording.key.appID},
                {"recordingID", recording.key.recordingID},
                {"sessionID", recording.key.sessionID},
                {"tabID", recording.tabID},
                {"startTime", startTime ? json(*startTime) : json(nullptr)},
                {"duration", duration},
                {"eventsPage", base + "/events"},
                {"eventsJson", base + "/events.json"},
                {"next", next ? json(*next) : json(nullptr)},
                {"device", std::move(device)},
                {"user", std::move(user)},
                {"frames", std::move(frames)},
                {"strokes", std::move(strokeList)},
                {"logs", std::move(logs)},
                {"network", std::move(exchanges)},
                {"problems", std::move(problems)}}
        .dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace qlm::ingest
