// What a started Core puts on the wire, read back by a real server, and the Core as the sink that
// captures reach.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <regex>
#include <thread>

#include "capture/log/LogHandler.h"
#include "engine/MessageEncoding.h"
#include "engine/SDK.h"
#include "platform/uikit/UIDevice.h"
#include "platform/url/NSMutableURLRequest.h"
#include "tests/engine/EngineTestSupport.h"
#include "wire/qm.pb.h"
#include "wire/qm_core.pb.h"
#include "wire/qm_ios.pb.h"
#include "wire/qm_network.pb.h"

using namespace quillmere;
using qlm_test::IngestServer;

namespace {

const std::string kLowerUUID = "[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}";

TEST(CorePipeline, SessionOpensWithMetadataThenAnonymousIdentifyStampedFromZero) {
    IngestServer server;
    auto session = Session::make("app-1");
    const double before = std::floor(qlm_test::nowMilliseconds());
    auto core = Core::make(session, qlm_test::configurationFor(server));
    ASSERT_TRUE(core);
    core->start();
    // Every float of the wire is made positive on the way, whatever the capture gave.
    qm::ios::TouchEvent touch;
    touch.set_x(-0.0f);
    touch.set_eventtime(-0.0);
    core->addEvent(EventType::touchEvent, touch);
    qlm_test::shutDownAndSettle(*core);
    const double after = std::ceil(qlm_test::nowMilliseconds());

    EXPECT_TRUE(std::regex_match(session->recordingID(), std::regex("5-" + kLowerUUID)));
    for (const auto& request : server.requests()) {
        EXPECT_EQ(request.query,
                  "a=app-1&r=" + session->recordingID() + "&t=" + session->tabID() + "&s=0&ir=t");
    }
    const auto events = server.events();
    ASSERT_EQ(events.size(), 3u);
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i].seqid(), i);
        EXPECT_EQ(events[i].time(), std::floor(events[i].time()));
        EXPECT_EQ(events[i].timeoffset(), std::floor(events[i].timeoffset()));
        EXPECT_GE(events[i].time(), before);
        EXPECT_LE(events[i].time(), after);
        EXPECT_LE(events[i].timeoffset(), after - before);
    }

    ASSERT_EQ(events[0].type(), "qm.Metadata");
    const auto device = qlm_test::innerMessage<qm::Metadata>(events[0]).deviceinfo();
    EXPECT_EQ(device.devicetype(), qm::Metadata_DeviceInfo_DeviceType_IOS);
    EXPECT_EQ(device.devicename(), platform::UIDevice::current()->model());
    EXPECT_EQ(device.manufacturer(), "Apple");
    EXPECT_EQ(device.release(), platform::UIDevice::current()->systemVersion());
    EXPECT_EQ(qlm_test::innerMessage<qm::Metadata>(events[0]).sdkversion(), "1.0.0");

    ASSERT_EQ(events[1].type(), "qm.Identify");
    const auto identify = qlm_test::innerMessage<qm::Identify>(events[1]);
    EXPECT_TRUE(identify.isanonymous());
    EXPECT_TRUE(std::regex_match(identify.userid(), std::regex(kLowerUUID))) << identify.userid();
    ASSERT_EQ(events[2].type(), "qm.ios.TouchEvent");
    EXPECT_EQ(events[2].data(), "") << "-0.0 went out as a value, not as the default";
}

TEST(CorePipeline, ConcurrentCallersGetDistinctSequenceNumbers) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 250;
    IngestServer server;
    auto core = Core::make(Session::make("app-1"), qlm_test::configurationFor(server));
    ASSERT_TRUE(core);
    core->start();
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&core, t] {
            for (int i = 0; i < kPerThread; ++i)
                core->addEvent(EventType::logEvent, LogHandler::logEventFrom("LOG", {std::to_string(t)}));
        });
    }
    for (auto& thread : threads) thread.join();
    qlm_test::shutDownAndSettle(*core);

    auto events = server.events();  // batches may overtake each other on the way
    std::sort(events.begin(), events.end(),
              [](const auto& a, const auto& b) { return a.seqid() < b.seqid(); });
    ASSERT_EQ(events.size(), 2u + kThreads * kPerThread);
    for (std::size_t i = 0; i < events.size(); ++i)
        EXPECT_EQ(events[i].seqid(), i) << "given twice or skipped";
}

TEST(SessionURL, IsEmptyUntilRelayedThenNamesAppRecordingSessionAndTime) {
    IngestServer server;
    auto session = Session::make("app-1");
    auto core = Core::make(session, qlm_test::configurationFor(server));
    ASSERT_TRUE(core);
    EXPECT_EQ(core->sessionURL(), "");

    core->setDashboardURL("https://dash.example/board");
    const double before = std::floor(qlm_test::nowMilliseconds());
    const std::string url = core->sessionURL();
    const double after = std::ceil(qlm_test::nowMilliseconds());
    const std::string head = "https://dash.example/board/app-1/s/" + session->recordingID() + "/0?t=";
    ASSERT_TRUE(url.starts_with(head)) << url;
    const std::string time = url.substr(head.size());
    ASSERT_TRUE(std::regex_match(time, std::regex("[0-9]+(\\.[0-9]+)?"))) << time;
    EXPECT_GE(std::stod(time), before);
    EXPECT_LE(std::stod(time), after);
}

// Captures hold the running Core weakly, as its sink. Shut down while they add, it sends each event
// at most once and goes with the last reference, on whichever thread lets go of it.
TEST(CoreAsSink, CapturesAddingThroughShutdownSendNothingTwiceAndLetTheCoreGo) {
    constexpr int kThreads = 4;
    IngestServer server;
    ASSERT_TRUE(SDK::initialize(qlm_test::configurationFor(server)));
    std::weak_ptr<Core> core = SDK::currentCore();
    const std::weak_ptr<EventSink> sink = SDK::currentCore();
    std::atomic<int> added{0};
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            while (!done) {
                const auto running = sink.lock();
                if (!running) return;
                running->addEvent(EventType::logEvent, LogHandler::logEventFrom("LOG", {"x"}));
                ++added;
            }
        });
    }
    ASSERT_TRUE(qlm_test::waitUntil([&] { return added.load() >= 100; }));
    auto stopping = core.lock();
    ASSERT_TRUE(stopping);
    SDK::shutdown();
    qlm_test::settle(*stopping);
    const auto stamped = static_cast<std::size_t>(stopping->session()->seqID().value());
    // From here only the capture threads hold it, while they add: the last of them to let go takes
    // it down.
    stopping.reset();
    done = true;
    for (auto& thread : threads) thread.join();
    EXPECT_TRUE(qlm_test::waitUntil([&] { return core.expired(); })) << "something the Core owns still holds it";

    auto events = server.events();
    std::sort(events.begin(), events.end(), [](const auto& a, const auto& b) { return a.seqid() < b.seqid(); });
    EXPECT_TRUE(std::adjacent_find(events.begin(), events.end(), [](const auto& a, const auto& b) {
                    return a.seqid() == b.seqid();
                }) == events.end())
        << "an event sent twice";
    EXPECT_GE(events.size(), 100u);
    EXPECT_LE(events.size(), stamped);
}

struct CapturedRequestCase {
    const char* url;  // nullptr: a request without a URL
    bool networkCaptureEnabled;
    bool captured;
};

// The library's own uploads go under serverURL; the prefix alone decides, not the path.
TEST(CoreAsSink, ShouldCaptureARequestWithAURLOutsideTheIngestEndpointWhileNetworkCaptureIsOn) {
    const CapturedRequestCase cases[] = {
        {"https://api.example/items", true, true},
        {"https://api.example/items", false, false},
        {"https://ingest.example/i?a=1", true, false},
        {"https://ingest.example/i/elsewhere", true, false},
        {"https://ingest.example/", true, true},
        {nullptr, true, false},
    };
    auto configuration = std::make_shared<Configuration>("app-1");
    configuration->setServerURL("https://ingest.example/i");
    const auto core = Core::make(Session::make("app-1"), configuration);
    ASSERT_TRUE(core);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.url ? c.url : "no URL");
        configuration->setNetworkCaptureEnabled(c.networkCaptureEnabled);
        const auto request = platform::NSMutableURLRequest::requestWithURL(
            c.url ? platform::NSURL::URLWithString(c.url) : nullptr);
        EXPECT_EQ(core->shouldCaptureRequest(*request), c.captured);
    }
}

// -0.0 is the default on the wire, and is left off as +0.0 is: in every float and double, at any
// depth, in lists and in map values.
TEST(WireZeros, NegativeZerosAreWrittenAsTheDefault) {
    constexpr double z = -0.0;
    qm::ios::TouchEvent touch;
    touch.set_x(static_cast<float>(z));
    touch.set_y(static_cast<float>(z));
    touch.set_eventtime(z);
    auto* move = touch.add_moves();
    move->set_x(static_cast<float>(z));
    move->set_eventtime(z);
    qm::network::ResponseEvent response;
    response.set_duration(z);
    qm::Buffer buffer;
    (*buffer.mutable_hrefmaxscroll())["/"] = static_cast<float>(z);
    qm::CustomEvent custom;
    (*custom.mutable_eventproperties())["p"].add_doubleval(z);
    qm::Metadata metadata;
    metadata.set_latitude(static_cast<float>(z));
    qm::Event event;
    event.set_time(z);
    event.set_timeoffset(z);
    event.set_type("t");

    struct Case {
        const char* name;
        google::protobuf::Message* message;
        std::string bytes;  // hex of the encoding once -0.0 is +0.0
    };
    const std::vector<Case> cases = {
        {"touch and its moves", &touch, "2200"},
        {"response duration", &response, ""},
#if !defined(__SANITIZE_THREAD__)
        // Maps through reflection don't survive ThreadSanitizer's build of protobuf's headers
        // against the uninstrumented library; no map the library builds holds a float.
        {"map value, which a map entry always writes", &buffer, "22080a012f1500000000"},
        {"map of messages with a list", &custom, "120f0a0170120a12080000000000000000"},
#endif
        {"metadata", &metadata, ""},
        {"envelope", &event, "120174"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        quillmere::makeZerosPositive(*c.message);
        std::string hex;
        for (unsigned char byte : c.message->SerializeAsString()) {
            static const char* digits = "0123456789abcdef";
            hex += digits[byte >> 4];
            hex += digits[byte & 15];
        }
        EXPECT_EQ(hex, c.bytes);
    }
}

}  // namespace
