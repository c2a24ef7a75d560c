// Search over what users saw, on a store holding the demo host's recording 100 times. The demo
// (quillmere-demo) records once into an in-process server for QLM_BENCH_DEMO_SECONDS (15 unless
// set, as scripts/demo records); its events are then uploaded again under 100 recording ids,
// through the same decoding and indexing as any upload, into SQLite and into PostgreSQL (skipped
// where it is not installed). Reported: the time of the listing's search as the server answers it
// (parsing, the store's query, the page), with the text index's size per screen capture and per
// indexed event as counters; and the indexing cost of one screen capture at ingest.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <pqxx/pqxx>
#include <stdexcept>
#include <string>
#include <vector>

#include "server/app/IngestService.h"
#include "server/http/HttpServer.h"
#include "server/ingest/IngestRequest.h"
#include "server/store/SqliteStore.h"
#include "tests/support/PostgresServer.h"
#include "wire/qm.pb.h"

namespace {

using namespace qlm::ingest;

constexpr int kCopies = 100;
constexpr std::size_t kEventsPerUpload = 20;  // about a second of the demo

// The demo's recording as the library uploaded it, each event with its inner message's bytes.
const std::vector<qm::Event>& demoEvents() {
    static const std::vector<qm::Event> events = [] {
        const char* seconds = std::getenv("QLM_BENCH_DEMO_SECONDS");
        const auto store = SqliteStore::createTemporary();
        std::optional<IngestService> service;
        HttpServer server({}, [&service](const HttpRequest& request) { return service->handle(request); });
        server.listen();
        const std::string base = "http://127.0.0.1:" + std::to_string(server.port());
        service.emplace(*store, base);
        server.start();
        const std::string command = std::string(QLM_DEMO_PROGRAM) + " --server " + base + "/i --seconds " +
                                    (seconds != nullptr ? seconds : "15") + " >/dev/null 2>&1";
        if (std::system(command.c_str()) != 0) throw std::runtime_error("the demo host failed: " + command);
        server.stop();
        std::vector<qm::Event> out;
        store->forEachEvent(store->recordings().at(0).key,
                            [&](const StoredEvent& stored, std::string_view data) {
                                qm::Event& event = out.emplace_back();
                                event.set_seqid(stored.seqID);
                                event.set_time(stored.time);
                                event.set_timeoffset(stored.timeOffset);
                                event.set_type(stored.type);
                                event.set_data(std::string(data));
                            });
        return out;
    }();
    return events;
}

std::string uploadBody(std::size_t first) {
    qm::EventList list;
    list.set_appid("demo-app");
    const auto& events = demoEvents();
    for (std::size_t i = first; i < std::min(events.size(), first + kEventsPerUpload); ++i)
        *list.add_events() = events[i];
    return list.SerializeAsString();
}

struct LoadedStore {
    std::unique_ptr<RecordingStore> store;
    std::string location;  // an SQLite path or a postgresql:// URI
    std::unique_ptr<IngestService> service;
    int64_t frames = 0, indexedEvents = 0, indexBytes = 0;
};

// The text index's bytes: FTS5's tables in SQLite, the table and its GIN index in PostgreSQL.
void measureIndex(LoadedStore& loaded, bool postgres) {
    const std::string frames = "SELECT count(*) FROM events WHERE type = 'qm.ios.PDFViewCapture'";
    if (postgres) {
        pqxx::connection connection(loaded.location);
        pqxx::nontransaction(connection).exec("VACUUM ANALYZE event_words");  // sizes as they settle
        pqxx::work work(connection);
        loaded.frames = work.exec1(frames)[0].as<int64_t>();
        loaded.indexBytes = work.exec1("SELECT pg_total_relation_size('event_words')")[0].as<int64_t>();
        return;
    }
    sqlite3* db = nullptr;
    sqlite3_open_v2(loaded.location.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    const auto count = [&](const std::string& sql) {
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr);
        const int64_t value = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : -1;
        sqlite3_finalize(statement);
        return value;
    };
    loaded.frames = count(frames);
    loaded.indexBytes = count("SELECT sum(pgsize) FROM dbstat WHERE name LIKE 'event_words%'");
    sqlite3_close(db);
}

LoadedStore* loadedStore(bool postgres) {
    static std::map<bool, std::unique_ptr<LoadedStore>> stores;
    auto& loaded = stores[postgres];
    if (loaded) return loaded.get();
    loaded = std::make_unique<LoadedStore>();
    if (postgres) {
        qlm_test::PostgresServer* server = qlm_test::PostgresServer::shared();
        if (server == nullptr) return nullptr;
        loaded->location = server->freshDatabase();
        loaded->store = openStore(loaded->location);
    } else {
        auto sqlite = SqliteStore::createTemporary();
        loaded->location = sqlite->path();
        loaded->store = std::move(sqlite);
    }
    for (int copy = 0; copy < kCopies; ++copy) {
        const std::string query = "a=demo-app&r=demo-" + std::to_string(copy) + "&t=tab&s=0&ir=t";
        for (std::size_t first = 0; first < demoEvents().size(); first += kEventsPerUpload) {
            auto decoding = decodeIngestRequest(query, uploadBody(first));
            if (!decoding.batch) throw std::runtime_error("the demo's upload was refused: " + decoding.error);
            for (const DecodedEvent& event : decoding.batch->events)
                loaded->indexedEvents += !event.words.empty();
            loaded->store->addBatch(*decoding.batch);
        }
    }
    measureIndex(*loaded, postgres);
    loaded->service = std::make_unique<IngestService>(*loaded->store, "http://127.0.0.1");
    return loaded.get();
}

void listing(benchmark::State& state, bool postgres, const char* query) {
    LoadedStore* loaded = loadedStore(postgres);
    if (loaded == nullptr) return state.SkipWithError("PostgreSQL is not installed");
    HttpRequest request;
    request.method = "GET";
    request.path = "/";
    request.rawQuery = query;
    std::size_t bytes = 0;
    for (auto _ : state) {
        const HttpResponse response = loaded->service->handle(request);
        if (response.status != 200) return state.SkipWithError("the listing failed");
        bytes = response.body.size();
    }
    state.counters["recordings"] = kCopies;
    state.counters["frames"] = static_cast<double>(loaded->frames);
    state.counters["index_B_per_frame"] =
        static_cast<double>(loaded->indexBytes) / static_cast<double>(loaded->frames);
    state.counters["index_B_per_event"] =
        static_cast<double>(loaded->indexBytes) / static_cast<double>(loaded->indexedEvents);
    state.counters["page_B"] = static_cast<double>(bytes);
}

// Words on most screens of every copy; a log line once per copy; words nowhere; filters alone.
#define QLM_LISTING(backend, postgres)                                                      \
    BENCHMARK_CAPTURE(listing, backend##_card_frozen, postgres, "q=card+frozen")            \
        ->Unit(benchmark::kMillisecond)                                                     \
        ->UseRealTime();                                                                    \
    BENCHMARK_CAPTURE(listing, backend##_editing, postgres, "q=editing")                    \
        ->Unit(benchmark::kMillisecond)                                                     \
        ->UseRealTime();                                                                    \
    BENCHMARK_CAPTURE(listing, backend##_nowhere, postgres, "q=zebra+crossing")             \
        ->Unit(benchmark::kMillisecond)                                                     \
        ->UseRealTime();                                                                    \
    BENCHMARK_CAPTURE(listing, backend##_errors_of_user, postgres, "errors=1&user=user-42") \
        ->Unit(benchmark::kMillisecond)                                                     \
        ->UseRealTime()

QLM_LISTING(sqlite, false);
QLM_LISTING(postgres, true);

// Decoding an upload of one screen capture, poppler's reading of its text included.
void BM_IndexOneFrame(benchmark::State& state) {
    std::string body;
    for (const qm::Event& event : demoEvents()) {
        if (event.type() != "qm.ios.PDFViewCapture") continue;
        qm::EventList list;
        *list.add_events() = event;
        body = list.SerializeAsString();
        break;
    }
    for (auto _ : state) benchmark::DoNotOptimize(decodeIngestRequest("a=demo-app&r=r&t=t&s=0&ir=t", body));
}
BENCHMARK(BM_IndexOneFrame)->Unit(benchmark::kMillisecond);

}  // namespace
