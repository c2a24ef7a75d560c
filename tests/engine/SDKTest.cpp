// The facade's process-wide behaviour. Whatever depends on the state at launch (queues not yet
// flushed) runs in a fresh process of its own, so the tests hold in any order and in one run.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

#include "engine/SDK.h"
#include "engine/TaskQueue.h"
#include "tests/engine/EngineTestSupport.h"
#include "tests/support/AllocationFaults.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/LogCapture.h"
#include "wire/qm_core.pb.h"

using namespace quillmere;
using qlm_test::IngestServer;

namespace {

void shutDownAndSettle() {
    const auto core = SDK::currentCore();
    ASSERT_TRUE(core);
    SDK::shutdown();
    EXPECT_FALSE(SDK::currentCore());
    qlm_test::settle(*core);
}

void heldCallsRunAfterStartInOrder() {
    const std::string overflow = "Quillmere: Quillmere initialization task queue has reached maximum size.";
    qlm_test::LogCapture log;
    IngestServer server;
    for (int i = 0; i < 100; ++i) SDK::identify("held-" + std::to_string(i), std::nullopt);
    SDK::addLog("WARN", {"refused, with the message"});
    SDK::identify("refused-silently", std::nullopt);
    EXPECT_EQ(SDK::initializationTaskQueue().heldCount(), 100u);
    EXPECT_EQ(log.lines(), std::vector<std::string>{overflow});

    ASSERT_TRUE(SDK::initialize(qlm_test::configurationFor(server)));
    SDK::addLog("INFO", {"runs at once", "latin-1 caf\xe9"});
    shutDownAndSettle();
    SDK::addLog("LOG", {"dropped after shutdown"});
    EXPECT_EQ(SDK::initializationTaskQueue().heldCount(), 0u);

    const auto events = server.events();
    // Metadata, the automatic identify, the nine held calls the limit of ten lets through, the log.
    ASSERT_EQ(events.size(), 12u);
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(qlm_test::innerMessage<qm::Identify>(events[2 + i]).userid(), "held-" + std::to_string(i));
    }
    const auto logged = qlm_test::innerMessage<qm::core::LogEvent>(events[11]);
    EXPECT_EQ(logged.args(0).arson(), "runs at once");
    // Not UTF-8, it would have got the whole upload refused.
    EXPECT_EQ(logged.args(1).arson(), "latin-1 caf\uFFFD");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{overflow,
                                                     "Quillmere: More than 10 identify calls on this "
                                                     "page. Ignoring future calls."}));
}

TEST(SDKFacade, HeldCallsRunAfterStartInOrderUpToTheBound) {
    qlm_test::inChildProcess(heldCallsRunAfterStartInOrder);
}

void sessionURLWaitsForTheFirstAcceptedUpload() {
    IngestServer server([](const qlm_test::HttpRequest&) {
        return qlm_test::HttpResponse::text(
            201, R"([{"type":"DASHBOARD_URL","data":{"dashboardURL":"https://dash.example/d"}}])");
    });
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> urls;  // guarded by mutex
    SDK::getSessionURL([&](std::string url) {
        std::lock_guard lock(mutex);
        urls.push_back(std::move(url));
        changed.notify_all();
    });
    EXPECT_EQ(SDK::acceptanceTaskQueue().heldCount(), 1u);

    ASSERT_TRUE(SDK::initialize(qlm_test::configurationFor(server)));
    const std::string head = "https://dash.example/d/app-1/s/" + SDK::currentCore()->session()->recordingID();
    {
        std::unique_lock lock(mutex);
        ASSERT_TRUE(changed.wait_for(lock, std::chrono::seconds(10), [&] { return !urls.empty(); }));
        EXPECT_TRUE(urls[0].starts_with(head)) << urls[0];
    }
    std::string atOnce;
    SDK::getSessionURL([&](std::string url) { atOnce = std::move(url); });
    EXPECT_TRUE(atOnce.starts_with(head)) << atOnce;
    shutDownAndSettle();

    bool called = false;
    SDK::getSessionURL([&](std::string) { called = true; });
    EXPECT_FALSE(called) << "flushed and nothing runs: the completion is dropped";
}

TEST(SDKFacade, SessionURLWaitsForTheFirstAcceptedUpload) {
    qlm_test::inChildProcess(sessionURLWaitsForTheFirstAcceptedUpload);
}

TEST(SDKFacade, RacingInitializeStartsExactlyOnce) {
    constexpr int kThreads = 8;
    qlm_test::LogCapture log;
    IngestServer server;
    const auto configuration = qlm_test::configurationFor(server);
    std::atomic<bool> go{false};
    std::atomic<int> started{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            while (!go.load()) std::this_thread::yield();
            if (SDK::initialize(configuration)) ++started;
        });
    }
    go.store(true);
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(started.load(), 1);
    EXPECT_EQ(log.count("Quillmere: SDK has already been initialized!"),
              static_cast<std::size_t>(kThreads - 1));
    shutDownAndSettle();
    EXPECT_EQ(server.events().size(), 2u) << "one session: one metadata and one identify";
}

// A start that fails part way, for want of memory at one allocation or another of its last ones
// (those of Core's start), leaves no Core in the slot, so the next initialize starts.
void aFailedStartLeavesTheSlotEmpty() {
    using qlm_test::AllocationFaults;
    qlm_test::LogCapture log;  // each refusal says why
    IngestServer server;
    const auto configuration = qlm_test::configurationFor(server);
    ASSERT_TRUE(SDK::initialize(configuration));  // warmed up: lazily made statics are there now
    SDK::shutdown();
    AllocationFaults::counted = 0;
    AllocationFaults::counting = true;
    const bool counted = SDK::initialize(configuration);
    AllocationFaults::counting = false;
    ASSERT_TRUE(counted);
    SDK::shutdown();
    const std::size_t total = AllocationFaults::counted;
    int refused = 0;
    for (std::size_t nth = total; nth > 0 && nth + 60 > total; --nth) {
        AllocationFaults::failNth = nth;
        const bool started = SDK::initialize(configuration);
        AllocationFaults::failNth = 0;
        if (!started) {
            ++refused;
            EXPECT_EQ(SDK::currentCore(), nullptr) << "allocation " << nth << " of " << total;
            ASSERT_TRUE(SDK::initialize(configuration)) << "allocation " << nth << " of " << total;
        }
        SDK::shutdown();
    }
    EXPECT_GT(refused, 0);
}

TEST(SDKFacade, AFailedStartLeavesTheSlotEmptyForTheNextInitialize) {
    qlm_test::inChildProcess(aFailedStartLeavesTheSlotEmpty);
}

class InitializeWithoutAnIngestURL : public ::testing::TestWithParam<std::pair<const char*, const char*>> {};

TEST_P(InitializeWithoutAnIngestURL, RefusesWithOneLineAndStartsNothing) {
    const auto [appID, serverURL] = GetParam();
    qlm_test::LogCapture log;
    auto configuration = std::make_shared<Configuration>(appID);
    configuration->setServerURL(serverURL);
    EXPECT_FALSE(SDK::initialize(configuration));
    EXPECT_FALSE(SDK::currentCore());
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with(std::string("Quillmere: Cannot form the ingest URL from \"") +
                                     serverURL + "?a=" + appID + "&r=5-"))
        << lines[0];
    EXPECT_TRUE(lines[0].ends_with("&s=0&ir=t\"; not starting.")) << lines[0];

    // Nothing was left half-started: a good configuration starts at once.
    IngestServer server;
    ASSERT_TRUE(SDK::initialize(qlm_test::configurationFor(server)));
    shutDownAndSettle();
}

INSTANTIATE_TEST_SUITE_P(Table, InitializeWithoutAnIngestURL,
                         ::testing::Values(std::pair{"app-1", "https://ingest example/i"},
                                           std::pair{"app-1", "not a url"}));

// Each of these would reach the server as another app id, or as none: the query is not escaped.
class InitializeWithAnAppIDThatCannotTravel
    : public ::testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(InitializeWithAnAppIDThatCannotTravel, RefusesWithOneLineNamingIt) {
    const auto& [appID, shown] = GetParam();
    qlm_test::LogCapture log;
    IngestServer server;
    EXPECT_FALSE(SDK::initialize(qlm_test::configurationFor(server, appID)));
    EXPECT_FALSE(SDK::currentCore());
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Quillmere: The app id \"" + shown +
                                                    "\" cannot go into the ingest URL as it is; not starting."});
    EXPECT_EQ(server.requestCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Table, InitializeWithAnAppIDThatCannotTravel,
                         ::testing::Values(std::pair{"a&r=x", "a&r=x"}, std::pair{"app#1", "app#1"},
                                           std::pair{"%41pp", "%41pp"}, std::pair{"a+b", "a+b"},
                                           std::pair{"a=b", "a=b"}, std::pair{"my app", "my app"},
                                           std::pair{"app\n1", "app\\x0A1"},
                                           std::pair{"app\x7F", "app\\x7F"}));

}  // namespace
