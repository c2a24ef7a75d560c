#include "server/views/ReplayJson.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "server/ingest/ValueText.h"
#include "server/views/HtmlPages.h"

namespace qlm::ingest {

using nlohmann::json;

namespace {

// A number field of protobuf's JSON form; floats that are not finite are printed as strings there,
// and absent fields mean the default.
double number(const json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end() || !it->is_number()) return 0;
    const double value = it->get<double>();
    return std::isfinite(value) ? value : 0;
}

std::string text(const json& object, const char* key) {
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

// Counts and sizes are whole numbers; printed as such they read better and compare exactly.
int64_t whole(const json& object, const char* key) {
    return static_cast<int64_t>(number(object, key));
}

bool flag(const json& object, const char* key) {
    const auto it = object.find(key);
    return it != object.end() && it->is_boolean() && it->get<bool>();
}

// An enum prints as its name, or as its number when the sender used one this schema has no name for.
std::string enumName(const json& object, const char* key, const char* defaultName) {
    const auto it = object.find(key);
    if (it == object.end()) return defaultName;
    if (it->is_string()) return it->get<std::string>();
    if (it->is_number()) return std::to_string(it->get<long long>());
    return defaultName;
}

json stringMap(const json& object, const char* key) {
    json out = json::object();
    const auto it = object.find(key);
    if (it == object.end() || !it->is_object()) return out;
    for (const auto& [name, value] : it->items()) {
        if (value.is_string()) out[name] = value;
    }
    return out;
}

// The body of a network message: null when none was captured, else its text.
json bodyText(const json& message) {
    const auto it = message.find("body");
    if (it == message.end() || !it->is_object()) return nullptr;
    return valueText(text(*it, "arson"));
}

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

json networkEntry(const std::string& reqId) {
    return {{"reqId", reqId},
            {"t", nullptr},
            {"end", nullptr},
            {"method", nullptr},
            {"url", nullptr},
            {"status", nullptr},
            {"durationMs", nullptr},
            {"requestHeaders", nullptr},
            {"responseHeaders", nullptr},
            {"requestBody", nullptr},
            {"responseBody", nullptr}};
}

}  // namespace

std::string replayJson(const RecordingSummary& recording, const std::vector<StoredEvent>& events,
                       std::optional<uint32_t> next) {
    const std::string base = recordingPath(recording.key);
    json frames = json::array(), logs = json::array(), network = json::array(), problems = json::array();
    json device = nullptr, user = nullptr;
    std::vector<Stroke> strokes;
    std::map<std::string, std::size_t> networkIndex;  // reqId -> position in `network`
    std::optional<double> startTime;
    double duration = 0;

    const auto entryFor = [&](const std::string& reqId) -> json& {
        const auto [it, added] = networkIndex.try_emplace(reqId, network.size());
        if (added) network.push_back(networkEntry(reqId));
        return network[it->second];
    };

    for (const StoredEvent& event : events) {
        const double t = std::isfinite(event.timeOffset) ? event.timeOffset : 0;
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
        } else if (event.type == "qm.network.RequestEvent") {
            json& entry = entryFor(text(message, "reqId"));
            entry["t"] = t;
            entry["method"] = enumName(message, "method", "GET");
            entry["url"] = text(message, "url");
            entry["requestHeaders"] = stringMap(message, "headers");
            entry["requestBody"] = bodyText(message);
        } else if (event.type == "qm.network.ResponseEvent") {
            json& entry = entryFor(text(message, "reqId"));
            entry["end"] = t;
            if (entry["t"].is_null()) entry["t"] = t;  // its request was not recorded
            if (entry["method"].is_null()) entry["method"] = enumName(message, "method", "GET");
            // The response's address is where a redirect ended; the request's is what was asked for.
            if (entry["url"].is_null()) entry["url"] = text(message, "url");
            entry["status"] = whole(message, "status");
            // The library sends the elapsed seconds divided by 1000.
            entry["durationMs"] = number(message, "duration") * 1e6;
            entry["responseHeaders"] = stringMap(message, "headers");
            entry["responseBody"] = bodyText(message);
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
    std::stable_sort(network.begin(), network.end(), [](const json& a, const json& b) {
        return a["t"].get<double>() < b["t"].get<double>();
    });

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
                {"network", std::move(network)},
                {"problems", std::move(problems)}}
        .dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace qlm::ingest
