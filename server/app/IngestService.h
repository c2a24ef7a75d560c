#pragma once
// The server's routes over a RecordingStore:
//   POST <any path ending in /i>?a=&r=&t=&s=&ir=t   an upload; 201 with the dashboard relay message
//   GET  /                                          recordings (HTML)
//   GET  /recordings.json                           recordings (JSON)
//   GET  /<appID>/s/<recordingID>/<session>         a session's events (HTML)
//   GET  /<appID>/s/<recordingID>/<session>/events.json
//   GET  /<appID>/s/<recordingID>/<session>/frames/<seqID>.pdf
// handle() is safe from any thread; the store must outlive the service.
#include <string>

#include "server/http/HttpRequest.h"
#include "server/http/HttpResponse.h"
#include "server/http/Router.h"
#include "server/store/RecordingStore.h"

namespace qlm::ingest {

class IngestService {
public:
    // `dashboardURL`: the base address relayed to the library, e.g. "http://127.0.0.1:8080".
    IngestService(RecordingStore& store, std::string dashboardURL);

    HttpResponse handle(const HttpRequest& request) const;

private:
    HttpResponse ingest(const HttpRequest& request) const;
    HttpResponse listPage() const;
    HttpResponse listJson() const;
    HttpResponse sessionPage(const RouteParams& params) const;
    HttpResponse sessionJson(const RouteParams& params) const;
    HttpResponse frame(const RouteParams& params) const;

    RecordingStore& store_;           // thread-safe itself
    const std::string dashboardURL_;  // immutable
    Router router_;                   // filled by the constructor, read-only afterwards
};

}  // namespace qlm::ingest
