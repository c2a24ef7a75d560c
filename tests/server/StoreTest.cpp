// Both stores against the same cases, and several servers on one PostgreSQL database. The
// PostgreSQL cases run on the real server that the ctest run shares (tests/support/PostgresServer)
// and skip where it is missing.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "server/store/PostgresStore.h"
#include "server/store/SqliteStore.h"
#include "tests/server/ServerHarness.h"
#include "tests/support/PostgresServer.h"

namespace qlm_test {
namespace {

using namespace qlm::ingest;

DecodedEvent decoded(uint32_t seqID, std::string type = "qm.core.LogEvent", std::string data = "d") {
    DecodedEvent event;
    event.seqID = seqID;
    event.time = 1700000000000.5 + seqID;
    event.timeOffset = seqID * 10.25;
    event.type = std::move(type);
    event.data = std::move(data);
    event.json = R"({"seq":)" + std::to_string(seqID) + "}";
    event.summary = "event " + std::to_string(seqID);
    return event;
}

IngestBatch batchOf(const std::string& recordingID, std::vector<uint32_t> seqIDs, const std::string& data = "d") {
    IngestBatch batch{{"app-1", recordingID, 4000000000u}, "tab-1", {}};
    for (uint32_t seqID : seqIDs) batch.events.push_back(decoded(seqID, "qm.core.LogEvent", data));
    return batch;
}

// Opens a second handle on the same data, as a second server process would.
struct Backend {
    std::string name;
    std::function<std::string()> location;  // a new empty store; empty when the backend is missing
};

// Names the case in test listings, rather than the struct's bytes.
void PrintTo(const Backend& backend, std::ostream* out) {
    *out << backend.name;
}

const Backend kBackends[] = {
    {"SQLite",
     [] {
         std::string path = (std::filesystem::temp_directory_path() / "qlm-store-XXXXXX").string();
         ::close(::mkstemp(path.data()));
         return path;
     }},
    {"PostgreSQL",
     []() -> std::string {
         PostgresServer* server = PostgresServer::shared();
         return server != nullptr ? server->freshDatabase() : std::string();
     }},
};

class StoreTest : public testing::TestWithParam<Backend> {
protected:
    void SetUp() override {
        location_ = GetParam().location();
        if (location_.empty()) GTEST_SKIP() << "PostgreSQL is not installed (scripts/setup installs it)";
    }
    void TearDown() override {
        if (!location_.starts_with("postgres")) {
            for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(location_ + suffix);
        }
    }
    std::unique_ptr<RecordingStore> open() const { return openStore(location_); }

    std::string location_;
};

TEST_P(StoreTest, KeepsTheFirstOfEachSeqIDAndReadsBackInPages) {
    const auto store = open();
    EXPECT_EQ(store->addBatch(batchOf("rec-1", {5, 3, 1, 4294967295u})), 4u);
    EXPECT_EQ(store->addBatch(batchOf("rec-1", {3, 2}, "second")), 1u) << "seqID 3 is already there";
    store->addBatch(batchOf("rec-0", {0}));

    const auto recording = store->recording({"app-1", "rec-1", 4000000000u});
    ASSERT_TRUE(recording);
    EXPECT_EQ(recording->eventCount, 5);
    EXPECT_EQ(recording->tabID, "tab-1");
    EXPECT_FALSE(store->recording({"app-1", "rec-1", 0}));
    const auto all = store->recordings();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_GE(all[0].lastSeen, all[1].lastSeen);

    const RecordingKey key{"app-1", "rec-1", 4000000000u};
    const auto first = store->eventPage(key, std::nullopt, 2);
    ASSERT_EQ(first.size(), 2u);
    EXPECT_EQ(first[0].seqID, 1u);
    EXPECT_EQ(first[1].seqID, 2u);
    EXPECT_EQ(first[0].time, 1700000000001.5);
    EXPECT_EQ(first[0].timeOffset, 10.25);
    EXPECT_EQ(first[0].json, R"({"seq":1})");
    EXPECT_EQ(first[0].summary, "event 1");
    EXPECT_TRUE(first[0].data.empty()) << "data only when asked for";
    const auto rest = store->eventPage(key, 2, 10, true);
    ASSERT_EQ(rest.size(), 3u);
    EXPECT_EQ(rest[2].seqID, 4294967295u);
    EXPECT_EQ(rest[0].data, "d") << "seqID 3 keeps its first data";

    EXPECT_EQ(store->eventData(key, 2, "qm.core.LogEvent"), "second");
    EXPECT_FALSE(store->eventData(key, 2, "qm.ios.PDFViewCapture"));
    EXPECT_FALSE(store->eventData(key, 6, "qm.core.LogEvent"));

    std::vector<uint32_t> visited;
    store->forEachEvent(key, [&](const StoredEvent& event, std::string_view data) {
        visited.push_back(event.seqID);
        EXPECT_FALSE(data.empty());
    });
    EXPECT_EQ(visited, (std::vector<uint32_t>{1, 2, 3, 5, 4294967295u}));
}

TEST_P(StoreTest, TwoHandlesStoringOverlappingBatchesAtOnceStoreEachEventOnce) {
    // Two handles stand for two server processes: only the database can keep them apart.
    const std::unique_ptr<RecordingStore> stores[] = {open(), open()};
    constexpr int kThreads = 4;
    constexpr uint32_t kBatches = 20;
    std::atomic<std::size_t> added{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            // Every thread sends the same seqIDs; batches overlap by half with the one before.
            for (uint32_t b = 0; b < kBatches; ++b)
                added += stores[t % 2]->addBatch(batchOf("shared", {b * 2, b * 2 + 1, b * 2 + 2, b * 2 + 3}));
        });
    }
    for (auto& thread : threads) thread.join();
    const auto events = stores[0]->events({"app-1", "shared", 4000000000u});
    std::set<uint32_t> distinct;
    for (const auto& event : events) EXPECT_TRUE(distinct.insert(event.seqID).second) << event.seqID;
    EXPECT_EQ(events.size(), kBatches * 2 + 2);
    EXPECT_EQ(added.load(), events.size()) << "each event counted as new exactly once";
    EXPECT_EQ(stores[1]->recordings().size(), 1u);
}

// Three recordings stored in the order a, b, c (so listed c, b, a): what each filter and search
// lets through, newest first.
TEST_P(StoreTest, FindsRecordingsByTagsAndWordsOfOneEventNewestFirstInPages) {
    const auto store = open();
    const auto indexed = [](uint32_t seqID, std::string words, std::vector<RecordingTag> tags = {}) {
        DecodedEvent event = decoded(seqID);
        event.words = std::move(words);
        event.tags = std::move(tags);
        return event;
    };
    const auto add = [&](std::string app, std::string recording, std::vector<DecodedEvent> events) {
        store->addBatch({{std::move(app), std::move(recording), 0}, "tab", std::move(events)});
    };
    add("app-1", "a",
        {indexed(1, "", {{kUserTag, "", "ada"}, {kTraitTag, "plan", "pro"}}), indexed(2, "card frozen 4417"),
         indexed(3, "payment sent", {{kErrorTag, "", ""}}), indexed(4, "card ending")});
    add("app-2", "b", {indexed(1, "card unfrozen", {{kUserTag, "", "bob"}, {kTraitTag, "plan", "free"}})});
    add("app-1", "c", {indexed(1, "statement ready")});
    // A repeat of a stored seqID adds nothing to the index either.
    add("app-1", "c", {indexed(1, "zebra", {{kErrorTag, "", ""}})});

    struct Case {
        RecordingFilter filter;
        std::vector<std::string> found;
    };
    const Case cases[] = {
        {{}, {"c", "b", "a"}},
        {{.appID = "app-1"}, {"c", "a"}},
        {{.userID = "bob"}, {"b"}},
        {{.traitName = "plan"}, {"b", "a"}},
        {{.traitName = "plan", .traitValue = "pro"}, {"a"}},
        {{.withErrors = true}, {"a"}},
        {{.from = 0.0}, {"c", "b", "a"}},
        {{.from = 4e12}, {}},
        {{.to = 1e12}, {}},
        {{.words = {"card"}}, {"b", "a"}},
        {{.words = {"unfroz", "card"}}, {"b"}},
        {{.words = {"ard"}}, {}},              // words match from their start
        {{.words = {"card", "payment"}}, {}},  // in one and the same event
        {{.words = {"zebra"}}, {}},
        {{.appID = "app-2", .words = {"4417"}}, {}},
    };
    for (const Case& c : cases) {
        std::vector<std::string> found;
        for (const auto& f : store->findRecordings(c.filter, std::nullopt, 10, 5).recordings)
            found.push_back(f.recording.key.recordingID);
        EXPECT_EQ(found, c.found) << "case " << (&c - cases);
    }

    const auto card = store->findRecordings({.words = {"card"}}, std::nullopt, 10, 1).recordings;
    ASSERT_EQ(card.size(), 2u);
    const FoundRecording& a = card[1];
    EXPECT_EQ(a.hits, 2);
    ASSERT_EQ(a.moments.size(), 1u) << "no more moments than asked for";
    EXPECT_EQ(a.moments[0].seqID, 2u);
    EXPECT_EQ(a.moments[0].timeOffset, 20.5);
    EXPECT_EQ(a.moments[0].summary, "event 2");
    EXPECT_TRUE(a.recording.hasErrors);
    EXPECT_EQ(a.recording.userIDs, std::vector<std::string>{"ada"});
    EXPECT_FALSE(card[0].recording.hasErrors) << "b";

    std::vector<std::string> paged;
    std::optional<RecordingCursor> after;
    do {
        const RecordingPage page = store->findRecordings({}, after, 1, 0);
        for (const auto& f : page.recordings) paged.push_back(f.recording.key.recordingID);
        after = page.next;
    } while (after && paged.size() < 5);
    EXPECT_EQ(paged, (std::vector<std::string>{"c", "b", "a"}));
}

INSTANTIATE_TEST_SUITE_P(Backends, StoreTest, testing::ValuesIn(kBackends),
                         [](const auto& info) { return info.param.name; });

TEST(SharedDatabaseTest, TwoServersOnOnePostgresStoreEveryEventOnceAndShowTheSameRecording) {
    PostgresServer* postgres = PostgresServer::shared();
    if (postgres == nullptr) GTEST_SKIP() << "PostgreSQL is not installed";
    const std::string database = postgres->freshDatabase();
    const WebFolders web{QLM_SOURCE_DIR "/server/web", ""};
    RunningServer servers[] = {RunningServer({}, web, std::make_unique<PostgresStore>(database)),
                               RunningServer({}, web, std::make_unique<PostgresStore>(database))};

    // The client alternates, and sends every batch a second time to the other server, as a retry
    // after a lost answer would.
    for (uint32_t b = 0; b < 6; ++b) {
        const std::string body = encodeBatch(everyKindOfEvent(b * 7));
        ASSERT_EQ(post(servers[b % 2].ingestURL("rec-1"), body).status, 201);
        ASSERT_EQ(post(servers[(b + 1) % 2].ingestURL("rec-1"), body).status, 201);
    }
    for (auto& server : servers) EXPECT_EQ(server.stored("rec-1"), 42u);

    const Reply documents[] = {get(servers[0].url("/app-1/s/rec-1/0/replay.json")),
                               get(servers[1].url("/app-1/s/rec-1/0/replay.json"))};
    ASSERT_EQ(documents[0].status, 200);
    EXPECT_EQ(nlohmann::json::parse(documents[0].body)["frames"].size(), 6u);
    EXPECT_EQ(documents[0].body, documents[1].body);
    for (auto& server : servers) {
        const Reply page = get(server.url("/app-1/s/rec-1/0"));
        EXPECT_EQ(page.status, 200);
        EXPECT_NE(page.body.find("replay.js"), std::string::npos);
    }
}

}  // namespace
}  // namespace qlm_test
