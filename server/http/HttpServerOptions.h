#pragma once
// The settings of an HttpServer; every bound here is what keeps one client from starving others.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qlm::ingest {

struct HttpServerOptions {
    std::string host = "127.0.0.1";  // an IPv4 address or a name that resolves to one
    uint16_t port = 0;               // 0: an ephemeral port, see HttpServer::port()
    // Connections served at once; more wait in the listen backlog until one ends.
    std::size_t maxConnections = 32;
    // Connections one client address may hold at once; more are answered 503 and closed. Behind a
    // load balancer every connection comes from its address, so raise this there (0: no cap).
    std::size_t maxConnectionsPerClient = 16;
    std::size_t maxHeaderBytes = 64 * 1024;
    std::size_t maxBodyBytes = 64 * 1024 * 1024;  // screen captures are whole PDFs
    // A request head must be complete this long after its first byte; a body gets this long plus
    // its length at minBodyBytesPerSecond, in total, however its bytes are spread.
    std::chrono::milliseconds readTimeout{10000};
    std::size_t minBodyBytesPerSecond = 8 * 1024;
    // How long a kept-alive connection waits for the next request.
    std::chrono::milliseconds idleTimeout{5000};
    // How long a reply may take to be written.
    std::chrono::milliseconds writeTimeout{30000};
    // At stop(), how long requests already being handled may take to answer before being cut off.
    std::chrono::milliseconds stopGrace{2000};
    // Threads that serve connections; a handler runs on one of them.
    std::size_t threads = 4;
    // Sent with every reply, the server's own refusals included.
    std::vector<std::pair<std::string, std::string>> headers;
};

}  // namespace qlm::ingest
