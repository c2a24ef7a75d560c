#pragma once
// Chooses a handler by method and path. Patterns are '/'-separated segments:
//   "name"          matches that segment exactly;
//   "{id}"          captures one whole non-empty segment;
//   "{id}.pdf"      captures a segment that ends in ".pdf", without the suffix;
//   "**" (first)    matches any number of leading segments, none included.
// Captured segments are percent-decoded; a segment with a broken escape answers 400. A path that
// some route matches under another method answers 405 with Allow; no match at all, the not-found
// handler (404). Routes are added before the router is shared; dispatch() is then safe from any
// thread.
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "server/http/HttpRequest.h"
#include "server/http/HttpResponse.h"

namespace qlm::ingest {

using RouteParams = std::map<std::string, std::string>;
using RouteHandler = std::function<HttpResponse(const HttpRequest&, const RouteParams&)>;

class Router {
public:
    void add(std::string method, const std::string& pattern, RouteHandler handler);
    void setNotFound(std::function<HttpResponse(const HttpRequest&)> handler);

    HttpResponse dispatch(const HttpRequest& request) const;

private:
    struct Segment {
        std::string literal;  // for a literal segment, else the suffix after the capture
        std::string capture;  // empty for a literal segment
    };
    struct Route {
        std::string method;
        bool anyPrefix = false;  // the pattern began with "**"
        std::vector<Segment> segments;
        RouteHandler handler;
    };

    // False when the path does not fit. When it fits, `params` holds the captures; `badEscape` is set
    // when a capture could not be decoded.
    static bool match(const Route& route, const std::vector<std::string>& path, RouteParams& params,
                      bool& badEscape);

    std::vector<Route> routes_;
    std::function<HttpResponse(const HttpRequest&)> notFound_;
};

}  // namespace qlm::ingest
