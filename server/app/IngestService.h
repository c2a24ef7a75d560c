#pragma once
// The server's routes over a RecordingStore:
//   POST <any path ending in /i>?a=&r=&t=&s=&ir=t   an upload; 201 with the dashboard relay message
//   GET  /                                          recordings: search and filters (HTML)
//   GET  /recordings.json                           the same as JSON
//   GET  /<appID>/s/<recordingID>/<session>         the replay page (HTML; the event list when the
//                                                   page's files are not there)
//   GET  /<appID>/s/<recordingID>/<session>/events  a session's events (HTML)
//   GET  /<appID>/s/<recordingID>/<session>/events.json    (these three a page at a time)
//   GET  /<appID>/s/<recordingID>/<session>/replay.json   the player's document (ReplayJson.h)
//   GET  /<appID>/s/<recordingID>/<session>/network.har   its network exchanges as HAR 1.2, streamed
//   GET  /<appID>/s/<recordingID>/<session>/frames/<seqID>.pdf
//   GET  /assets/<file>, /assets/pdfjs/<file>       the replay page's files and pdf.js
// handle() is safe from any thread; the store must outlive the service.
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "server/http/HttpRequest.h"
#include "server/http/HttpResponse.h"
#include "server/http/Router.h"
#include "server/http/StaticFiles.h"
#include "server/search/ListingQuery.h"
#include "server/store/RecordingStore.h"

namespace qlm::ingest {

// Where the replay page's files are read from; an empty folder serves none.
struct WebFolders {
    std::string page;   // replay.html, replay.js, replay.css
    std::string pdfjs;  // pdf.js's build folder: pdf.min.mjs, pdf.worker.min.mjs
};

class IngestService {
public:
    // `dashboardURL`: the base address relayed to the library, e.g. "http://127.0.0.1:8080".
    IngestService(RecordingStore& store, std::string dashboardURL, const WebFolders& web = {});

    HttpResponse handle(const HttpRequest& request) const;

    // The fields every reply of this server carries (HttpServerOptions::headers): scripts, styles,
    // pdf.js's worker, fetches and form submissions only to the server itself, no sniffing of types,
    // no referrer.
    static std::vector<std::pair<std::string, std::string>> securityHeaders();

private:
    HttpResponse ingest(const HttpRequest& request) const;
    // The listing's query (server/search/ListingQuery.h) and the page of recordings it finds, or
    // what is wrong with the query.
    std::variant<std::pair<ListingQuery, RecordingPage>, std::string> listing(
        const HttpRequest& request) const;
    HttpResponse listPage(const HttpRequest& request) const;
    HttpResponse listJson(const HttpRequest& request) const;
    HttpResponse sessionPage(const RouteParams& params) const;
    // The views of a session take a page of its events: ?after=SEQ (the last seqID of the page
    // before) and ?limit=N (1 to 10000, 1000 unless given); each names the next page's cursor.
    HttpResponse sessionJson(const HttpRequest& request, const RouteParams& params) const;
    HttpResponse eventListPage(const HttpRequest& request, const RouteParams& params) const;
    HttpResponse replayDocument(const HttpRequest& request, const RouteParams& params) const;
    static HttpResponse asset(const StaticFiles& files, const RouteParams& params);
    HttpResponse networkHar(const RouteParams& params) const;
    HttpResponse frame(const RouteParams& params) const;
    // The recording the route names, if the store has it.
    std::optional<std::pair<RecordingKey, RecordingSummary>> recordingOf(const RouteParams& params) const;
    // The plain list of a recording's events, which also stands in for the player without its files.
    HttpResponse eventList(const RecordingKey& key, const RecordingSummary& recording,
                           std::optional<uint32_t> after) const;
    struct EventPage {
        std::vector<StoredEvent> events;
        std::optional<uint32_t> next;  // the cursor of the page after, when there is one
    };
    EventPage pageOf(const RecordingKey& key, std::optional<uint32_t> after, std::size_t limit) const;

    RecordingStore& store_;           // thread-safe itself
    const std::string dashboardURL_;  // immutable
    const StaticFiles pageFiles_;     // immutable
    const StaticFiles pdfjsFiles_;    // immutable
    Router router_;                   // filled by the constructor, read-only afterwards
};

}  // namespace qlm::ingest
