#include "examples/demo-host/DemoEndpoint.h"

#include <exception>

namespace demo {

using qlm::ingest::HttpRequest;
using qlm::ingest::HttpResponse;
using qlm::ingest::RouteParams;

DemoEndpoint::DemoEndpoint()
    : server_(qlm::ingest::HttpServerOptions{},
              [this](const HttpRequest& request) { return router_.dispatch(request); }) {
    router_.add("GET", "/api/profile", [](const HttpRequest&, const RouteParams&) {
        return HttpResponse::json(
            200, R"({"id":"user-42","name":"Ada Lovelace","avatar":"https://cdn.example.com/u/42.png"})");
    });
    router_.add("POST", "/api/cart", [](const HttpRequest& request, const RouteParams&) {
        return HttpResponse::json(201,
                                  R"({"saved":true,"received":)" + std::to_string(request.body.size()) + "}");
    });
    router_.add("GET", "/api/old-orders", [](const HttpRequest&, const RouteParams&) {
        return HttpResponse::json(302, R"({"moved":"/api/orders"})").withHeader("Location", "/api/orders");
    });
    router_.add("GET", "/api/orders", [](const HttpRequest&, const RouteParams&) {
        return HttpResponse::json(200, R"([{"order":1017,"total":"42.50"},{"order":1018,"total":"7.99"}])");
    });
    router_.add("GET", "/api/coupons", [](const HttpRequest&, const RouteParams&) {
        return HttpResponse::json(503, R"({"error":"the coupon service is down"})");
    });
    router_.setNotFound(
        [](const HttpRequest&) { return HttpResponse::json(404, R"({"error":"no such route"})"); });
}

std::unique_ptr<DemoEndpoint> DemoEndpoint::start() {
    std::unique_ptr<DemoEndpoint> endpoint(new DemoEndpoint());
    try {
        endpoint->server_.start();
    } catch (const std::exception&) {
        return nullptr;
    }
    return endpoint;
}

DemoEndpoint::~DemoEndpoint() {
    server_.stop();
}

std::string DemoEndpoint::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(server_.port()) + path;
}

}  // namespace demo
