#include "server/app/IngestService.h"

#include <optional>

#include "server/ingest/IngestRequest.h"
#include "server/store/StoreError.h"
#include "server/views/HtmlPages.h"
#include "server/views/JsonViews.h"
#include "wire/qm_ios.pb.h"

namespace qlm::ingest {

namespace {

std::optional<RecordingKey> keyOf(const RouteParams& params) {
    const auto session = parseUint32(params.at("session"));
    if (!session) return std::nullopt;
    return RecordingKey{params.at("app"), params.at("recording"), *session};
}

HttpResponse notFound(std::string_view message) {
    return HttpResponse::html(404, notFoundPage(message));
}

HttpResponse unknownRecording() {
    return notFound(
        "There is no such recording session on this server. The address names the app, the "
        "recording and the session number exactly as the library uploaded them.");
}

HttpResponse uncached(HttpResponse response) {
    response.headers.emplace_back("Cache-Control", "no-store");
    return response;
}

}  // namespace

IngestService::IngestService(RecordingStore& store, std::string dashboardURL)
    : store_(store), dashboardURL_(std::move(dashboardURL)) {
    router_.add("POST", "/**/i",
                [this](const HttpRequest& request, const RouteParams&) { return ingest(request); });
    router_.add("GET", "/", [this](const HttpRequest&, const RouteParams&) { return listPage(); });
    router_.add("GET", "/recordings.json",
                [this](const HttpRequest&, const RouteParams&) { return listJson(); });
    router_.add("GET", "/{app}/s/{recording}/{session}",
                [this](const HttpRequest&, const RouteParams& params) { return sessionPage(params); });
    router_.add("GET", "/{app}/s/{recording}/{session}/events.json",
                [this](const HttpRequest&, const RouteParams& params) { return sessionJson(params); });
    router_.add("GET", "/{app}/s/{recording}/{session}/frames/{seq}.pdf",
                [this](const HttpRequest&, const RouteParams& params) { return frame(params); });
    router_.setNotFound(
        [](const HttpRequest& request) { return notFound("Nothing is served at " + request.path + "."); });
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

HttpResponse IngestService::listPage() const {
    return uncached(HttpResponse::html(200, recordingListPage(store_.recordings())));
}

HttpResponse IngestService::listJson() const {
    return uncached(HttpResponse::json(200, recordingsJson(store_.recordings())));
}

HttpResponse IngestService::sessionPage(const RouteParams& params) const {
    const auto key = keyOf(params);
    const auto recording = key ? store_.recording(*key) : std::nullopt;
    if (!recording) return unknownRecording();
    return uncached(HttpResponse::html(200, recordingPage(*recording, store_.events(*key))));
}

HttpResponse IngestService::sessionJson(const RouteParams& params) const {
    const auto key = keyOf(params);
    const auto recording = key ? store_.recording(*key) : std::nullopt;
    if (!recording) return HttpResponse::json(404, R"({"error":"unknown recording"})");
    return uncached(HttpResponse::json(200, eventsJson(*recording, store_.events(*key))));
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
