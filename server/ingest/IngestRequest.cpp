#include "server/ingest/IngestRequest.h"

#include <climits>
#include <cmath>
#include <nlohmann/json.hpp>
#include <set>

#include "server/http/QueryString.h"
#include "server/ingest/EventJson.h"
#include "server/ingest/EventSummary.h"
#include "server/ingest/InnerMessage.h"
#include "server/ingest/SeqIDRange.h"
#include "wire/qm.pb.h"

namespace qlm::ingest {

namespace {

IngestDecoding reject(std::string why) {
    return IngestDecoding{std::nullopt, std::move(why)};
}

// Identifiers end up in JSON, HTML and paths, so they must be UTF-8 without control characters.
bool isPrintableUtf8(std::string_view text) {
    for (unsigned char c : text) {
        if (c < 0x20 || c == 0x7F) return false;
    }
    try {
        (void)nlohmann::json(std::string(text)).dump();
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

// The single value of a key that must appear exactly once, with a usable identifier.
std::optional<std::string> single(const QueryParameters& query, std::string_view key, std::string& error) {
    const std::string* found = nullptr;
    for (const auto& [name, value] : query) {
        if (name != key) continue;
        if (found != nullptr) {
            error = "query key \"" + std::string(key) + "\" appears more than once";
            return std::nullopt;
        }
        found = &value;
    }
    if (found == nullptr || found->empty()) {
        error = "query key \"" + std::string(key) + "\" is missing or empty";
        return std::nullopt;
    }
    if (found->size() > kMaxIdentifierBytes || !isPrintableUtf8(*found)) {
        error = "query key \"" + std::string(key) + "\" is too long or not printable UTF-8";
        return std::nullopt;
    }
    return *found;
}

}  // namespace

std::optional<uint32_t> parseUint32(std::string_view text) {
    if (text.empty() || text.size() > 10) return std::nullopt;
    uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    if (value > UINT32_MAX) return std::nullopt;
    return static_cast<uint32_t>(value);
}

IngestDecoding decodeIngestRequest(std::string_view rawQuery, std::string_view body) {
    const auto query = parseQuery(rawQuery);
    if (!query) return reject("the query has a malformed percent-escape");
    std::string error;
    auto appID = single(*query, "a", error);
    if (!appID) return reject(error);
    auto recordingID = single(*query, "r", error);
    if (!recordingID) return reject(error);
    auto tabID = single(*query, "t", error);
    if (!tabID) return reject(error);
    auto sessionText = single(*query, "s", error);
    if (!sessionText) return reject(error);
    auto flag = single(*query, "ir", error);
    if (!flag) return reject(error);
    const auto sessionID = parseUint32(*sessionText);
    if (!sessionID) return reject("query key \"s\" is not a decimal session number");
    if (*flag != "t") return reject("query key \"ir\" must be \"t\"");

    if (body.size() > static_cast<std::size_t>(INT_MAX)) return reject("the body is too large");
    qm::EventList list;
    if (!list.ParseFromArray(body.data(), static_cast<int>(body.size()))) {
        return reject("the body is not a qm.EventList");
    }
    if (list.events_size() == 0) return reject("the batch holds no events");
    if (!seqIDsFitIn32Bits(body)) return reject("a seqID is above 4294967295");
    if (!list.appid().empty() && list.appid() != *appID)
        return reject("the body's appID differs from the query's");

    IngestBatch batch{{std::move(*appID), std::move(*recordingID), *sessionID}, std::move(*tabID), {}};
    batch.events.reserve(static_cast<std::size_t>(list.events_size()));
    std::set<uint32_t> seqIDs;
    for (int i = 0; i < list.events_size(); ++i) {
        qm::Event& event = *list.mutable_events(i);
        const std::string where = "event " + std::to_string(i) + ": ";
        if (!std::isfinite(event.time()) || !std::isfinite(event.timeoffset())) {
            return reject(where + "time or timeOffset is not a finite number");
        }
        if (!seqIDs.insert(event.seqid()).second) return reject(where + "seqID repeats within the batch");
        const auto message = decodeInnerMessage(event.type(), event.data());
        if (!message) {
            if (event.type().size() > kMaxIdentifierBytes || !isPrintableUtf8(event.type())) {
                return reject(where + "unknown type");
            }
            return reject(where + "unknown type \"" + event.type() + "\" or data that is not one");
        }
        DecodedEvent decoded;
        decoded.seqID = event.seqid();
        decoded.time = event.time();
        decoded.timeOffset = event.timeoffset();
        decoded.type = event.type();
        try {
            decoded.json = renderEventJson(*message);
        } catch (const std::exception&) {
            return reject(where + "the message cannot be shown as JSON");
        }
        decoded.summary = summarizeEvent(*message);
        EventIndexEntry index = indexEvent(*message);
        decoded.words = std::move(index.words);
        decoded.tags = std::move(index.tags);
        decoded.data = std::move(*event.mutable_data());
        batch.events.push_back(std::move(decoded));
    }
    return IngestDecoding{std::move(batch), {}};
}

}  // namespace qlm::ingest
