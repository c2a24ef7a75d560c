#include "server/app/IngestService.h"

#include <cctype>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "server/app/HarStream.h"
#include "server/http/QueryString.h"
#include "server/ingest/IngestRequest.h"
#include "server/store/StoreError.h"
#include "server/views/HtmlPages.h"
#include "server/views/JsonViews.h"
#include "server/views/ListingPage.h"
#include "server/views/ReplayJson.h"
#include "wire/qm_ios.pb.h"

namespace qlm::ingest {

namespace {

std::optional<RecordingKey> keyOf(const RouteParams& params) {
    const auto session = parseUint32(params.at("session"));
    if (!session) return std::nullopt;
    return RecordingKey{params.at("app"), params.at("recording"), *session};
}

// Each recording of a search's page shows this many of its matches.
constexpr std::size_t kMomentsShown = 12;

// Views hold one page of events at a time. The cursor is the last seqID of the page before.
constexpr std::size_t kDefaultPage = 1000;
constexpr std::size_t kLargestPage = 10000;

struct PageRequest {
    std::optional<uint32_t> after;
    std::size_t limit = kDefaultPage;
};

std::optional<PageRequest> pageRequestOf(const HttpRequest& request) {
    const auto query = parseQuery(request.rawQuery);
    if (!query) return std::nullopt;
    PageRequest page;
    for (const auto& [name, value] : *query) {
        const auto number = parseUint32(value);
        if (name == "after") {
            if (!number) return std::nullopt;
            page.after = *number;
        } else if (name == "limit") {
            if (!number || *number == 0 || *number > kLargestPage) return std::nullopt;
            page.limit = *number;
        }
    }
    return page;
}

HttpResponse notFound(std::string_view message) {
    return HttpResponse::html(404, notFoundPage(message));
}

HttpResponse unknownRecording() {
    return notFound(
        "There is no such recording session on this server. The address names the app, the "
        "recording and the session number exactly as the library uploaded them.");
}

// Recordings grow while they are watched: no reply about one may be kept. Replaces whatever
// caching a served file came with.
HttpResponse uncached(HttpResponse response) {
    std::erase_if(response.headers, [](const auto& header) { return header.first == "Cache-Control"; });
    response.headers.emplace_back("Cache-Control", "no-store");
    return response;
}

}  // namespace

IngestService::IngestService(RecordingStore& store, std::string dashboardURL, const WebFolders& web)
    : store_(store), dashboardURL_(std::move(dashboardURL)), pageFiles_(web.page), pdfjsFiles_(web.pdfjs) {
    router_.add("POST", "/**/i",
                [this](const HttpRequest& request, const RouteParams&) { return ingest(request); });
    router_.add("GET", "/",
                [this](const HttpRequest& request, const RouteParams&) { return listPage(request); });
    router_.add("GET", "/recordings.json",
                [this](const HttpRequest& request, const RouteParams&) { return listJson(request); });
    router_.add("GET", "/{app}/s/{recording}/{session}",
                [this](const HttpRequest&, const RouteParams& params) { return sessionPage(params); });
    router_.add("GET", "/{app}/s/{recording}/{session}/events",
                [this](const HttpRequest& request, const RouteParams& params) { return eventListPage(request, params); });
    router_.add("GET", "/{app}/s/{recording}/{session}/replay.json",
                [this](const HttpRequest& request, const RouteParams& params) { return replayDocument(request, params); });
    router_.add("GET", "/assets/{file}",
                [this](const HttpRequest&, const RouteParams& params) { return asset(pageFiles_, params); });
    router_.add("GET", "/assets/pdfjs/{file}",
                [this](const HttpRequest&, const RouteParams& params) { return asset(pdfjsFiles_, params); });
    router_.add("GET", "/{app}/s/{recording}/{session}/events.json",
                [this](const HttpRequest& request, const RouteParams& params) { return sessionJson(request, params); });
    router_.add("GET", "/{app}/s/{recording}/{session}/network.har",
                [this](const HttpRequest&, const RouteParams& params) { return networkHar(params); });
    router_.add("GET", "/{app}/s/{recording}/{session}/frames/{seq}.pdf",
                [this](const HttpRequest&, const RouteParams& params) { return frame(params); });
    router_.setNotFound(
        [](const HttpRequest& request) { return notFound("Nothing is served at " + request.path + "."); });
}

std::vector<std::pair<std::string, std::string>> IngestService::securityHeaders() {
    return {{"Content-Security-Policy",
             "default-src 'none'; script-src 'self'; style-src 'self'; worker-src 'self'; "
             "connect-src 'self'; img-src 'self' data: blob:; font-src 'self' data:; base-uri 'none'; "
             "form-action 'self'; frame-ancestors 'none'"},
            {"X-Content-Type-Options", "nosniff"},
            {"Referrer-Policy", "no-referrer"}};
}

HttpResponse IngestService::handle(const HttpRequest& request) const {
    try {
        return router_.dispatch(request);
    } catch (const StoreError& e) {
        return HttpResponse::text(500, std::string("storage failed: ") + e.what() + "\n");
    }
}

HttpResponse IngestService::ingest(const HttpRequest& request) const {
    IngestDecoding decoding = decodeIngestRequest(request.rawQuery, request.body);
    if (!decoding.batch) return HttpResponse::text(400, decoding.error + "\n");
    store_.addBatch(*decoding.batch);
    return HttpResponse::json(201, dashboardRelayJson(dashboardURL_));
}

std::variant<std::pair<ListingQuery, RecordingPage>, std::string> IngestService::listing(
    const HttpRequest& request) const {
    auto parsed = parseListingQuery(request.rawQuery);
    if (auto* error = std::get_if<std::string>(&parsed)) return std::move(*error);
    ListingQuery& query = std::get<ListingQuery>(parsed);
    RecordingPage page;
    if (!query.matchesNothing())
        page = store_.findRecordings(query.filter, query.after, query.limit, kMomentsShown);
    return std::pair{std::move(query), std::move(page)};
}

HttpResponse IngestService::listPage(const HttpRequest& request) const {
    const auto found = listing(request);
    if (auto* error = std::get_if<std::string>(&found)) return HttpResponse::text(400, *error + "\n");
    const auto& [query, page] = std::get<0>(found);
    return uncached(HttpResponse::html(200, recordingListPage(query, page)));
}

HttpResponse IngestService::listJson(const HttpRequest& request) const {
    const auto found = listing(request);
    if (auto* error = std::get_if<std::string>(&found))
        return HttpResponse::json(400, nlohmann::json{{"error", *error}}.dump());
    const auto& [query, page] = std::get<0>(found);
    return uncached(HttpResponse::json(200, recordingsJson(page, query.text)));
}

std::optional<std::pair<RecordingKey, RecordingSummary>> IngestService::recordingOf(
    const RouteParams& params) const {
    const auto key = keyOf(params);
    auto recording = key ? store_.recording(*key) : std::nullopt;
    if (!recording) return std::nullopt;
    return std::pair{*key, std::move(*recording)};
}

IngestService::EventPage IngestService::pageOf(const RecordingKey& key, std::optional<uint32_t> after,
                                               std::size_t limit) const {
    EventPage page{store_.eventPage(key, after, limit + 1), std::nullopt};
    if (page.events.size() > limit) {
        page.events.resize(limit);
        page.next = page.events.back().seqID;
    }
    return page;
}

HttpResponse IngestService::eventList(const RecordingKey& key, const RecordingSummary& recording,
                                      std::optional<uint32_t> after) const {
    const EventPage page = pageOf(key, after, kDefaultPage);
    return uncached(HttpResponse::html(200, recordingPage(recording, page.events, page.next)));
}

HttpResponse IngestService::sessionPage(const RouteParams& params) const {
    const auto found = recordingOf(params);
    if (!found) return unknownRecording();
    const auto& [key, recording] = *found;
    // The page is the same for every recording but for its links; its script reads replay.json
    // beside its own address.
    if (auto page = pageFiles_.serve("replay.html")) {
        const std::string base = escapeHtml(recordingPath(key));
        for (std::size_t at = page->body.find("%BASE%"); at != std::string::npos;
             at = page->body.find("%BASE%", at + base.size())) {
            page->body.replace(at, 6, base);
        }
        return uncached(std::move(*page));
    }
    return eventList(key, recording, std::nullopt);
}

HttpResponse IngestService::eventListPage(const HttpRequest& request, const RouteParams& params) const {
    const auto wanted = pageRequestOf(request);
    if (!wanted) return HttpResponse::text(400, "after and limit must be numbers, limit from 1 to 10000\n");
    const auto found = recordingOf(params);
    if (!found) return unknownRecording();
    return eventList(found->first, found->second, wanted->after);
}

HttpResponse IngestService::replayDocument(const HttpRequest& request, const RouteParams& params) const {
    const auto wanted = pageRequestOf(request);
    if (!wanted) return HttpResponse::json(400, R"({"error":"after and limit must be numbers"})");
    const auto found = recordingOf(params);
    if (!found) return HttpResponse::json(404, R"({"error":"unknown recording"})");
    const EventPage page = pageOf(found->first, wanted->after, wanted->limit);
    return uncached(HttpResponse::json(200, replayJson(found->second, page.events, page.next)));
}

HttpResponse IngestService::asset(const StaticFiles& files, const RouteParams& params) {
    if (auto file = files.serve(params.at("file"))) return std::move(*file);
    return notFound(
        "No such file. The replay page's files come with the server's source; pdf.js is "
        "installed by scripts/setup.");
}

HttpResponse IngestService::sessionJson(const HttpRequest& request, const RouteParams& params) const {
    const auto wanted = pageRequestOf(request);
    if (!wanted) return HttpResponse::json(400, R"({"error":"after and limit must be numbers"})");
    const auto found = recordingOf(params);
    if (!found) return HttpResponse::json(404, R"({"error":"unknown recording"})");
    const EventPage page = pageOf(found->first, wanted->after, wanted->limit);
    return uncached(HttpResponse::json(200, eventsJson(found->second, page.events, page.next)));
}

HttpResponse IngestService::networkHar(const RouteParams& params) const {
    const auto found = recordingOf(params);
    if (!found) return HttpResponse::json(404, R"({"error":"unknown recording"})");
    const auto& [key, recording] = *found;
    // Saved under a name made of the recording's, with only what every file system takes.
    std::string name = key.recordingID + "-" + std::to_string(key.sessionID);
    for (char& c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_' && c != '.') c = '_';
    }
    HttpResponse response = HttpResponse::json(200, "");
    response.headers.emplace_back("Content-Disposition", "attachment; filename=\"" + name + ".har\"");
    response.stream = [har = std::make_shared<HarStream>(store_, recording)] { return har->next(); };
    return uncached(std::move(response));
}

HttpResponse IngestService::frame(const RouteParams& params) const {
    const auto key = keyOf(params);
    const auto seqID = parseUint32(params.at("seq"));
    if (!key || !seqID) return notFound("No such frame.");
    const auto data = store_.eventData(*key, *seqID, qm::ios::PDFViewCapture::descriptor()->full_name());
    qm::ios::PDFViewCapture capture;
    if (!data || !capture.ParseFromString(*data)) return notFound("No such frame in this recording session.");
    HttpResponse response;
    response.body = std::move(*capture.mutable_pdfdata());
    response.headers.emplace_back("Content-Type", "application/pdf");
    response.headers.emplace_back("Content-Disposition",
                                  "inline; filename=\"frame-" + std::to_string(*seqID) + ".pdf\"");
    return response;
}

}  // namespace qlm::ingest
