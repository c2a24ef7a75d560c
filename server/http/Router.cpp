#include "server/http/Router.h"

#include "server/http/QueryString.h"

namespace qlm::ingest {

namespace {

std::vector<std::string> splitPath(std::string_view path) {
    std::vector<std::string> segments;
    if (!path.empty() && path.front() == '/') path.remove_prefix(1);
    while (true) {
        const std::size_t slash = path.find('/');
        segments.emplace_back(path.substr(0, slash));
        if (slash == std::string_view::npos) break;
        path.remove_prefix(slash + 1);
    }
    return segments;
}

}  // namespace

void Router::add(std::string method, const std::string& pattern, RouteHandler handler) {
    Route route{std::move(method), false, {}, std::move(handler)};
    std::vector<std::string> parts = splitPath(pattern);
    if (!parts.empty() && parts.front() == "**") {
        route.anyPrefix = true;
        parts.erase(parts.begin());
    }
    for (const std::string& part : parts) {
        const std::size_t close = part.find('}');
        if (part.starts_with('{') && close != std::string::npos) {
            route.segments.push_back({part.substr(close + 1), part.substr(1, close - 1)});
        } else {
            route.segments.push_back({part, ""});
        }
    }
    routes_.push_back(std::move(route));
}

void Router::setNotFound(std::function<HttpResponse(const HttpRequest&)> handler) {
    notFound_ = std::move(handler);
}

bool Router::match(const Route& route, const std::vector<std::string>& path, RouteParams& params,
                   bool& badEscape) {
    if (route.anyPrefix ? path.size() < route.segments.size() : path.size() != route.segments.size()) {
        return false;
    }
    const std::size_t offset = path.size() - route.segments.size();
    params.clear();
    for (std::size_t i = 0; i < route.segments.size(); ++i) {
        const Segment& segment = route.segments[i];
        const std::string& actual = path[offset + i];
        if (segment.capture.empty()) {
            if (actual != segment.literal) return false;
            continue;
        }
        if (actual.size() <= segment.literal.size() || !actual.ends_with(segment.literal)) return false;
        auto decoded =
            percentDecode(std::string_view(actual).substr(0, actual.size() - segment.literal.size()));
        if (!decoded) {
            badEscape = true;
            return false;
        }
        params[segment.capture] = std::move(*decoded);
    }
    return true;
}

HttpResponse Router::dispatch(const HttpRequest& request) const {
    const std::vector<std::string> path = splitPath(request.path);
    std::string allowed;
    bool badEscape = false;
    RouteParams params;
    for (const Route& route : routes_) {
        if (!match(route, path, params, badEscape)) continue;
        if (route.method == request.method) return route.handler(request, params);
        if (allowed.find(route.method) == std::string::npos) {
            if (!allowed.empty()) allowed += ", ";
            allowed += route.method;
        }
    }
    if (badEscape) return HttpResponse::text(400, "malformed percent-escape in the path\n");
    if (!allowed.empty()) {
        return HttpResponse::text(405, request.method + " is not allowed here\n")
            .withHeader("Allow", allowed);
    }
    if (notFound_) return notFound_(request);
    return HttpResponse::text(404, "not found\n");
}

}  // namespace qlm::ingest
