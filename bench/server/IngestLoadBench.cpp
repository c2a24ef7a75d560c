// The ingest server under load: N clients each POST batches shaped like the demo host's (a screen
// capture, logs, touches, a network exchange) over one kept-alive connection for a fixed time.
// Reported: batches a second, and the p50 and p99 of a batch's round trip. Afterwards every event
// that was acknowledged is looked for in the store. SQLite and PostgreSQL side by side; the
// PostgreSQL runs are skipped where it is not installed.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <chrono>
#include <optional>
#include <thread>
#include <vector>

#include "server/app/IngestService.h"
#include "server/http/HttpServer.h"
#include "server/store/SqliteStore.h"
#include "tests/support/PostgresServer.h"
#include "wire/qm.pb.h"
#include "wire/qm_core.pb.h"
#include "wire/qm_ios.pb.h"
#include "wire/qm_network.pb.h"

namespace {

using namespace qlm::ingest;
namespace http = boost::beast::http;
using Clock = std::chrono::steady_clock;

constexpr auto kRunTime = std::chrono::seconds(4);
constexpr uint32_t kEventsPerBatch = 8;

void add(qm::EventList& list, uint32_t seqID, const google::protobuf::Message& inner) {
    qm::Event& event = *list.add_events();
    event.set_seqid(seqID);
    event.set_time(1700000000000.0 + seqID * 50);
    event.set_timeoffset(seqID * 50.0);
    event.set_type(inner.GetDescriptor()->full_name());
    event.set_data(inner.SerializeAsString());
}

// Batch `n` of a session, as the demo host sends them: seqIDs n*8 .. n*8+7.
std::string demoBatch(uint32_t n) {
    qm::EventList list;
    list.set_appid("bench");
    const uint32_t first = n * kEventsPerBatch;
    qm::ios::PDFViewCapture capture;
    capture.set_width(390);
    capture.set_height(844);
    capture.set_pdfdata("%PDF-1.4\n" + std::string(14 * 1024, 'x') + "\n%%EOF\n");  // a demo screen's size
    add(list, first, capture);
    for (uint32_t i = 1; i <= 3; ++i) {
        qm::core::LogEvent log;
        log.add_args()->set_arson(R"(["loaded the feed in 23 ms"])");
        add(list, first + i, log);
    }
    for (uint32_t i = 4; i <= 5; ++i) {
        qm::ios::TouchEvent touch;
        touch.set_x(120.5f);
        touch.set_y(300.0f);
        touch.add_moves()->set_x(118.0f);
        add(list, first + i, touch);
    }
    qm::network::RequestEvent request;
    request.set_reqid("ios-" + std::to_string(n));
    request.set_url("https://api.example.test/feed?page=" + std::to_string(n));
    (*request.mutable_headers())["Accept"] = "application/json";
    add(list, first + 6, request);
    qm::network::ResponseEvent response;
    response.set_reqid(request.reqid());
    response.set_status(200);
    response.set_duration(0.023);
    add(list, first + 7, response);
    return list.SerializeAsString();
}

struct ClientResult {
    std::vector<double> latencies;  // milliseconds, one per acknowledged batch
    uint32_t acknowledged = 0;
    bool failed = false;
};

void runClient(uint16_t port, int client, const std::vector<std::string>& batches, Clock::time_point until,
               ClientResult& result) {
    try {
        boost::asio::io_context context;
        boost::asio::ip::tcp::socket socket(context);
        socket.connect({boost::asio::ip::make_address_v4("127.0.0.1"), port});
        socket.set_option(boost::asio::ip::tcp::no_delay(true));
        boost::beast::flat_buffer buffer;
        const std::string target = "/i?a=bench&r=client-" + std::to_string(client) + "&t=tab&s=0&ir=t";
        for (uint32_t n = 0; Clock::now() < until; ++n) {
            http::request<http::string_body> request(http::verb::post, target, 11);
            request.set(http::field::host, "127.0.0.1");
            request.set(http::field::content_type, "application/octet-stream");
            request.body() = batches[n % batches.size()];
            // The batch number goes into the seqIDs: each batch is new to the store.
            if (n >= batches.size()) request.body() = demoBatch(n);
            request.prepare_payload();
            const auto sent = Clock::now();
            http::write(socket, request);
            http::response<http::string_body> response;
            http::read(socket, buffer, response);
            if (response.result_int() != 201) {
                result.failed = true;
                return;
            }
            result.latencies.push_back(std::chrono::duration<double, std::milli>(Clock::now() - sent).count());
            result.acknowledged = n + 1;
        }
    } catch (const std::exception&) {
        result.failed = true;
    }
}

void ingestLoad(benchmark::State& state, bool postgres) {
    const int clients = static_cast<int>(state.range(0));
    std::unique_ptr<RecordingStore> store;
    if (postgres) {
        qlm_test::PostgresServer* server = qlm_test::PostgresServer::shared();
        if (server == nullptr) return state.SkipWithError("PostgreSQL is not installed");
        store = openStore(server->freshDatabase());
    } else {
        store = SqliteStore::createTemporary();
    }
    HttpServerOptions options;
    options.maxConnections = 256;
    options.maxConnectionsPerClient = 0;
    std::optional<IngestService> service;
    HttpServer server(options, [&service](const HttpRequest& request) { return service->handle(request); });
    server.listen();
    service.emplace(*store, "http://127.0.0.1");
    server.start();
    std::vector<std::string> batches;
    for (uint32_t n = 0; n < 64; ++n) batches.push_back(demoBatch(n));

    for (auto _ : state) {
        std::vector<ClientResult> results(static_cast<std::size_t>(clients));
        const auto start = Clock::now();
        const auto until = start + kRunTime;
        std::vector<std::thread> threads;
        for (int c = 0; c < clients; ++c)
            threads.emplace_back(runClient, server.port(), c, std::cref(batches), until, std::ref(results[c]));
        for (auto& thread : threads) thread.join();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();

        std::vector<double> all;
        bool complete = true;
        for (int c = 0; c < clients; ++c) {
            const ClientResult& result = results[static_cast<std::size_t>(c)];
            if (result.failed) complete = false;
            all.insert(all.end(), result.latencies.begin(), result.latencies.end());
            // Every acknowledged event must be there, each once.
            const auto stored = store->recording({"bench", "client-" + std::to_string(c), 0});
            const int64_t expected = int64_t{result.acknowledged} * kEventsPerBatch;
            if (result.acknowledged > 0 && (!stored || stored->eventCount < expected)) complete = false;
        }
        if (!complete) state.SkipWithError("a batch failed, or an acknowledged event is missing");
        std::sort(all.begin(), all.end());
        const auto percentile = [&](double p) {
            return all.empty() ? 0.0 : all[std::min(all.size() - 1, static_cast<std::size_t>(p * all.size()))];
        };
        state.counters["batches_per_s"] = static_cast<double>(all.size()) / seconds;
        state.counters["p50_ms"] = percentile(0.50);
        state.counters["p99_ms"] = percentile(0.99);
    }
    server.stop();
}

void BM_IngestSqlite(benchmark::State& state) {
    ingestLoad(state, false);
}
void BM_IngestPostgres(benchmark::State& state) {
    ingestLoad(state, true);
}

BENCHMARK(BM_IngestSqlite)->Arg(4)->Arg(16)->Arg(64)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(BM_IngestPostgres)->Arg(4)->Arg(16)->Arg(64)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
