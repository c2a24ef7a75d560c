#pragma once
// The settings of an HttpServer; every bound here is what keeps one client from starving others.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace qlm::ingest {

struct HttpServerOptions {
    std::string host = "127.0.0.1";  // an IPv4 address or a name that resolves to one
    uint16_t port = 0;               // 0: an ephemeral port, see HttpServer::port()
    // Connections served at once; more wait in the listen backlog until one ends.
    std::size_t maxConnections = 32;
    std::size_t maxHeaderBytes = 64 * 1024;
    std::size_t maxBodyBytes = 64 * 1024 * 1024;  // screen captures are whole PDFs
    // A request head must be complete this long after its first byte, and a body may pause no longer.
    std::chrono::milliseconds readTimeout{10000};
    // How long a kept-alive connection waits for the next request.
    std::chrono::milliseconds idleTimeout{5000};
    // How long a reply may wait for the client to take more bytes.
    std::chrono::milliseconds writeTimeout{30000};
    // At stop(), how long requests already being handled may take to answer before being cut off.
    std::chrono::milliseconds stopGrace{2000};
};

}  // namespace qlm::ingest
