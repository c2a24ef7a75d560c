#pragma once
// The demo app's backend, in the demo's own process on 127.0.0.1, served by the reference server's
// HTTP layer:
//
//   GET  /api/profile     200, a JSON profile
//   POST /api/cart        201, a JSON receipt naming the bytes received
//   GET  /api/old-orders  302 to /api/orders
//   GET  /api/orders      200, a JSON list
//   GET  /api/coupons     503, a JSON error
//   anything else         404
//
// Threads: made and destroyed on one thread; it serves on threads of its own in between.
#include <memory>
#include <string>

#include "server/http/HttpServer.h"
#include "server/http/Router.h"

namespace demo {

class DemoEndpoint {
public:
    // Null when no loopback port can be had.
    static std::unique_ptr<DemoEndpoint> start();
    ~DemoEndpoint();
    DemoEndpoint(const DemoEndpoint&) = delete;
    DemoEndpoint& operator=(const DemoEndpoint&) = delete;

    // "http://127.0.0.1:<port>" and `path`.
    std::string url(const std::string& path) const;

private:
    DemoEndpoint();

    qlm::ingest::Router router_;  // filled before the server starts, then only read
    qlm::ingest::HttpServer server_;
};

}  // namespace demo
