// The replay page's server side: the player's document built from a recording the library's own
// encoders made (a real PDF of a view tree, bodies and output wrapped as the library wraps them),
// uploaded to a real server; stored rows that cannot be read; and the files the page is made of.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "capture/network/JsonValue.h"
#include "server/views/HarLog.h"
#include "server/views/ReplayJson.h"
#include "tests/server/ServerHarness.h"
#include "wire/qm_core.pb.h"
#include "wire/qm_ios.pb.h"
#include "wire/qm_network.pb.h"

namespace qlm_test {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

qm::ios::TouchEvent touch(qm::ios::TouchEvent::MotionType type, float x, float y, double eventTime) {
    qm::ios::TouchEvent event;
    event.set_type(type);
    event.set_x(x);
    event.set_y(y);
    event.set_eventtime(eventTime);
    return event;
}

std::vector<qm::Event> librarySession() {
    qm::Metadata metadata;
    metadata.set_sdkversion("1.0.0");
    metadata.mutable_deviceinfo()->set_devicetype(qm::Metadata::DeviceInfo::IOS);
    metadata.mutable_deviceinfo()->set_devicename("iPhone");
    qm::Identify anonymous;
    anonymous.set_userid("0b7c");
    anonymous.set_isanonymous(true);
    qm::Identify named;
    named.set_userid("user-42");
    named.set_name("Ada");
    (*named.mutable_traits())["plan"] = "pro";

    qm::core::LogEvent addLog;  // addLog's arguments are plain strings, not JSON arrays
    addLog.set_loglevel(qm::core::LogEvent::WARN);
    addLog.add_args()->set_arson("[\"not\"");
    addLog.add_args()->set_arson("two");

    qm::network::RequestEvent request;
    request.set_reqid("ios-1");
    request.set_url("http://api.test/cart");
    request.set_method(qm::network::POST);
    (*request.mutable_headers())["Content-Type"] = "application/json";
    *request.mutable_body() = *quillmere::jsonValue(R"({"items":["a/b"]})");
    qm::network::ResponseEvent response;
    response.set_reqid("ios-1");
    response.set_status(201);
    response.set_url("http://api.test/cart");
    response.set_method(qm::network::POST);
    response.set_duration(0.0025 / 1000);  // 2.5 ms, in the unit the library sends
    *response.mutable_body() = *quillmere::jsonValue("");
    qm::network::RequestEvent unanswered;
    unanswered.set_reqid("ios-2");
    unanswered.set_url("http://api.test/slow");
    qm::network::ResponseEvent orphan;  // its request came before capture started
    orphan.set_reqid("ios-0");
    orphan.set_status(503);

    // A MOVE's head was taken at the envelope's time; its older samples 100 and 50 ms before.
    qm::ios::TouchEvent move = touch(qm::ios::TouchEvent::MOVE, 50, 90, 81000);
    for (const double back : {100.0, 50.0}) {
        auto* sample = move.add_moves();
        sample->set_x(50);
        sample->set_y(static_cast<float>(90 - back / 10));
        sample->set_eventtime(81000 - back);
    }

    return {eventAt(0, 0, metadata),
            eventAt(1, 0, anonymous),
            eventAt(2, 5, named),
            eventAt(3, 10, capturedOutput("line one\n", qm::core::LogEvent::LOG)),
            eventAt(4, 20, addLog),
            eventAt(5, 250, orphan),
            eventAt(6, 300, request),
            eventAt(7, 400, unanswered),
            eventAt(8, 1000, capturedScreen("Welcome")),
            eventAt(9, 1200, response),
            eventAt(10, 1800, touch(qm::ios::TouchEvent::DOWN, 50, 70, 80800)),
            eventAt(11, 2000, move),
            eventAt(12, 2100, touch(qm::ios::TouchEvent::UP, 50, 91, 81100)),
            eventAt(13, 2500, touch(qm::ios::TouchEvent::DOWN, 300, 600, 81500)),
            eventAt(14, 2600, capturedOutput("oops", qm::core::LogEvent::ERROR))};
}

TEST(ReplayDocumentTest, ArrangesALibraryRecordingForThePlayer) {
    RunningServer server;
    ASSERT_EQ(post(server.ingestURL("rec-1"), encodeBatch(librarySession())).status, 201);
    const Reply reply = get(server.url("/app-1/s/rec-1/0/replay.json"));
    ASSERT_EQ(reply.status, 200);
    EXPECT_EQ(reply.contentType, "application/json");
    const json doc = json::parse(reply.body);

    EXPECT_EQ(doc["startTime"], 1700000000000.0);
    EXPECT_EQ(doc["duration"], 2600);
    EXPECT_EQ(doc["device"]["deviceName"], "iPhone");
    EXPECT_EQ(doc["device"]["deviceType"], "IOS");
    EXPECT_EQ(doc["user"], json::parse(R"({"userID":"user-42","name":"Ada","email":"","isAnonymous":false,
                                           "traits":{"plan":"pro"}})"))
        << "the latest identify names the user";
    EXPECT_TRUE(doc["problems"].empty()) << doc["problems"];

    ASSERT_EQ(doc["frames"].size(), 1u);
    const json& frame = doc["frames"][0];
    EXPECT_EQ(frame["t"], 1000);
    EXPECT_EQ(frame["width"], 390);
    EXPECT_EQ(frame["height"], 844);
    const Reply pdf = get(server.url(frame["url"].get<std::string>()));
    EXPECT_EQ(pdf.status, 200);
    EXPECT_EQ(pdf.body.size(), frame["size"].get<std::size_t>());

    // Output arrives wrapped in a JSON array and is shown unwrapped; addLog's strings stay as sent.
    ASSERT_EQ(doc["logs"].size(), 3u);
    EXPECT_EQ(doc["logs"][0], json({{"seqID", 3}, {"t", 10}, {"level", "LOG"}, {"text", "line one\n"}}));
    EXPECT_EQ(doc["logs"][1]["text"], "[\"not\" two");
    EXPECT_EQ(doc["logs"][1]["level"], "WARN");
    EXPECT_EQ(doc["logs"][2]["level"], "ERROR");

    // Paired by reqId whatever lies between; rows in the order the exchanges began.
    const json& network = doc["network"];
    ASSERT_EQ(network.size(), 3u);
    EXPECT_EQ(network[0]["reqId"], "ios-0");
    EXPECT_EQ(network[0]["status"], 503);
    EXPECT_TRUE(network[0]["requestHeaders"].is_null());
    const json& cart = network[1];
    EXPECT_EQ(cart["reqId"], "ios-1");
    EXPECT_EQ(cart["t"], 300);
    EXPECT_EQ(cart["end"], 1200);
    EXPECT_EQ(cart["method"], "POST");
    EXPECT_EQ(cart["status"], 201);
    EXPECT_NEAR(cart["durationMs"].get<double>(), 2.5, 1e-9);
    EXPECT_EQ(cart["requestHeaders"], json({{"Content-Type", "application/json"}}));
    EXPECT_EQ(cart["requestBody"], R"({"items":["a/b"]})");
    EXPECT_EQ(cart["responseBody"], "") << "an empty body is a body";
    EXPECT_EQ(network[2]["reqId"], "ios-2");
    EXPECT_TRUE(network[2]["status"].is_null()) << "no response recorded";
    EXPECT_TRUE(network[2]["responseBody"].is_null());

    // The MOVE's older samples are placed by their uptime distance from its head.
    const json& strokes = doc["strokes"];
    ASSERT_EQ(strokes.size(), 2u);
    std::vector<std::pair<double, std::string>> points;
    for (const json& p : strokes[0]["points"]) points.emplace_back(p["t"].get<double>(), p["phase"]);
    EXPECT_EQ(points, (std::vector<std::pair<double, std::string>>{
                          {1800, "DOWN"}, {1900, "MOVE"}, {1950, "MOVE"}, {2000, "MOVE"}, {2100, "UP"}}));
    EXPECT_TRUE(strokes[0]["ended"]);
    EXPECT_FALSE(strokes[1]["ended"]) << "a touch still down when the recording stops";
    EXPECT_EQ(strokes[1]["start"], 2500);
}

TEST(ReplayDocumentTest, TwoFingersKeepTheirOwnStrokes) {
    using T = qm::ios::TouchEvent;
    const std::vector<qm::Event> events = {
        eventAt(0, 0, touch(T::DOWN, 10, 10, 0)),    eventAt(1, 0, touch(T::DOWN, 300, 300, 0)),
        eventAt(2, 50, touch(T::MOVE, 305, 310, 50)), eventAt(3, 60, touch(T::MOVE, 12, 20, 60)),
        eventAt(4, 90, touch(T::UP, 306, 320, 90)),   eventAt(5, 95, touch(T::UP, 12, 25, 95))};
    std::vector<qlm::ingest::StoredEvent> stored;
    for (const qm::Event& e : events) {
        T message;
        ASSERT_TRUE(message.ParseFromString(e.data()));
        json printed = {{"type", T::MotionType_Name(message.type())}, {"x", message.x()}, {"y", message.y()},
                        {"eventTime", message.eventtime()}};
        stored.push_back({e.seqid(), e.time(), e.timeoffset(), e.type(), "", printed.dump()});
    }
    const json doc = json::parse(qlm::ingest::replayJson({{"a", "r", 0}, "t", 0, 0, 6}, stored));
    ASSERT_EQ(doc["strokes"].size(), 2u);
    for (const json& stroke : doc["strokes"]) {
        const double firstX = stroke["points"][0]["x"];
        for (const json& point : stroke["points"]) EXPECT_NEAR(point["x"].get<double>(), firstX, 10) << stroke;
        EXPECT_TRUE(stroke["ended"]);
    }
}

TEST(ReplayDocumentTest, UnreadableRowsAreListedAsProblemsAndTheRestStillPlays) {
    const std::vector<qlm::ingest::StoredEvent> stored = {
        {0, 1700000000000.0, 0, "qm.core.LogEvent", "", R"({"logLevel":"LOG","args":[{"arson":"[\"ok\"]"}]})"},
        {1, 1700000000010.0, 10, "qm.ios.PDFViewCapture", "", "{truncated"},
        {2, 1700000000020.0, 20, "qm.core.LogEvent", "", "[]"},
        {3, 1700000000030.0, 30, "qm.Activate", "", "{}"},
        // Wrong kinds of values where numbers and strings belong are read as defaults.
        {4, 1700000000040.0, 40, "qm.network.ResponseEvent", "", R"({"reqId":7,"status":"NaN","headers":[1]})"},
        {5, 1700000000050.0, 50, "qm.ios.TouchEvent", "", R"({"type":"MOVE","x":"NaN","moves":[1,{"x":2}]})"},
    };
    const json doc = json::parse(qlm::ingest::replayJson({{"a", "r", 0}, "t", 0, 0, 6}, stored));
    ASSERT_EQ(doc["problems"].size(), 3u);
    EXPECT_EQ(doc["problems"][0]["seqID"], 1);
    EXPECT_EQ(doc["problems"][1]["seqID"], 2);
    EXPECT_EQ(doc["problems"][2]["reason"], "unknown type");
    EXPECT_TRUE(doc["frames"].empty());
    ASSERT_EQ(doc["logs"].size(), 1u);
    EXPECT_EQ(doc["logs"][0]["text"], "ok");
    ASSERT_EQ(doc["network"].size(), 1u);
    EXPECT_EQ(doc["network"][0]["status"], 0);
    EXPECT_EQ(doc["network"][0]["responseHeaders"], json::object());
    EXPECT_EQ(doc["strokes"].size(), 1u);
}

// The same recording's exchanges as HAR: paired as the player pairs them, in the order they began.
TEST(NetworkHarTest, ExportsEachExchangeOfALibraryRecordingAsAnEntry) {
    RunningServer server;
    ASSERT_EQ(post(server.ingestURL("rec-1"), encodeBatch(librarySession())).status, 201);
    const Reply reply = get(server.url("/app-1/s/rec-1/0/network.har"));
    ASSERT_EQ(reply.status, 200) << reply.error;
    EXPECT_EQ(reply.contentType, "application/json");
    const json log = json::parse(reply.body)["log"];
    EXPECT_EQ(log["version"], "1.2");
    EXPECT_EQ(log["pages"][0]["startedDateTime"], "2023-11-14T22:13:20.000Z");

    const json& entries = log["entries"];
    ASSERT_EQ(entries.size(), 3u);
    std::vector<std::string> order;
    for (const json& entry : entries) {
        order.push_back(entry["_reqId"]);
        EXPECT_EQ(entry["pageref"], log["pages"][0]["id"]);
        EXPECT_EQ(entry["time"], entry["timings"]["wait"]);
    }
    EXPECT_EQ(order, (std::vector<std::string>{"ios-0", "ios-1", "ios-2"}));
    const json& cart = entries[1];
    EXPECT_EQ(cart["startedDateTime"], "2023-11-14T22:13:20.300Z");
    EXPECT_NEAR(cart["time"].get<double>(), 2.5, 1e-9);
    EXPECT_EQ(cart["request"]["method"], "POST");
    EXPECT_EQ(cart["request"]["headers"],
              json::parse(R"([{"name":"Content-Type","value":"application/json"}])"));
    EXPECT_EQ(cart["request"]["postData"],
              json({{"mimeType", "application/json"}, {"text", R"({"items":["a/b"]})"}}));
    EXPECT_EQ(cart["response"]["status"], 201);
    EXPECT_EQ(cart["response"]["statusText"], "Created");
    EXPECT_EQ(cart["response"]["content"], json({{"size", 0}, {"mimeType", "x-unknown"}, {"text", ""}}));
    EXPECT_EQ(entries[0]["response"]["statusText"], "Service Unavailable")
        << "an answer to an unrecorded request";
    EXPECT_EQ(entries[0]["startedDateTime"], "2023-11-14T22:13:20.250Z");
    EXPECT_EQ(entries[2]["response"]["status"], 0) << "no answer";
    EXPECT_TRUE(entries[2]["response"].contains("_error"));
    EXPECT_EQ(get(server.url("/app-1/s/rec-9/0/network.har")).status, 404);
}

// An unanswered request holds back the exchanges after it, but only so many.
TEST(NetworkHarTest, HoldsBackNoMoreThanItsShareOfExchanges) {
    qlm::ingest::HarLog log({{"a", "r", 0}, "t"}, "1");
    const auto event = [](uint32_t seqID, const char* type, const std::string& fields) {
        return qlm::ingest::StoredEvent{seqID, 1.7e12, 0, type, "", "{" + fields + "}"};
    };
    const auto request = [&](uint32_t n) {
        return event(n, "qm.network.RequestEvent",
                     R"("reqId":"ios-)" + std::to_string(n) + R"(","url":"http://a.test/")");
    };
    std::string har = log.begin();
    for (uint32_t n = 0; n < qlm::ingest::kMaxHeldExchanges; ++n) EXPECT_EQ(log.add(request(n)), "") << n;
    har += log.add(request(qlm::ingest::kMaxHeldExchanges));
    EXPECT_NE(har.find(R"("_reqId":"ios-0")"), std::string::npos) << "the oldest goes out unanswered";
    har += log.add(event(1000, "qm.network.ResponseEvent", R"("reqId":"ios-1","status":200)"));
    har += log.end();
    const json entries = json::parse(har)["log"]["entries"];
    ASSERT_EQ(entries.size(), qlm::ingest::kMaxHeldExchanges + 1);
    EXPECT_EQ(entries[0]["response"]["status"], 0);
    EXPECT_EQ(entries[1]["response"]["status"], 200);
    for (std::size_t i = 0; i < entries.size(); ++i)
        EXPECT_EQ(entries[i]["_reqId"], "ios-" + std::to_string(i));
}

class PageFilesTest : public testing::Test {
protected:
    const fs::path source = QLM_SOURCE_DIR;
    const fs::path pdfjs = source / "node_modules/pdfjs-dist/build";
    RunningServer server{{}, {(source / "server/web").string(), pdfjs.string()}};
};

TEST_F(PageFilesTest, RelayedAddressServesThePlayerAndItsFilesWithTheirTypes) {
    ASSERT_EQ(post(server.url("/i?a=my%20app&r=rec-1&t=t&s=0&ir=t"), encodeBatch({everyKindOfEvent()[2]}, "my app")).status, 201);
    // As the library relays it: with the time of asking in the query.
    const Reply page = get(server.url("/my%20app/s/rec-1/0?t=1700000000000.5"));
    ASSERT_EQ(page.status, 200);
    EXPECT_EQ(page.contentType, "text/html; charset=utf-8");
    EXPECT_NE(page.body.find("src=\"/assets/replay.js\""), std::string::npos);
    EXPECT_NE(page.body.find("href=\"/my%20app/s/rec-1/0/events\""), std::string::npos);
    EXPECT_EQ(page.body.find("%BASE%"), std::string::npos);

    EXPECT_EQ(get(server.url("/assets/replay.js")).contentType, "text/javascript; charset=utf-8");
    EXPECT_EQ(get(server.url("/assets/replay.css")).contentType, "text/css; charset=utf-8");
    if (fs::exists(pdfjs / "pdf.min.mjs")) {
        const Reply module = get(server.url("/assets/pdfjs/pdf.min.mjs"));
        EXPECT_EQ(module.status, 200);
        EXPECT_EQ(module.contentType, "text/javascript; charset=utf-8") << "browsers refuse modules otherwise";
    }
}

class RefusedFileTest : public PageFilesTest, public testing::WithParamInterface<const char*> {};

TEST_P(RefusedFileTest, Answers404) {
    EXPECT_EQ(get(server.url(GetParam())).status, 404) << GetParam();
}

// Nothing outside the two folders, nothing hidden, and only the page's kinds of files.
INSTANTIATE_TEST_SUITE_P(Paths, RefusedFileTest,
                         testing::Values("/assets/..%2FCMakeLists.txt", "/assets/%2E%2E", "/assets/.hidden.js",
                                         "/assets/missing.js", "/assets/pdfjs/..%2F..%2Fpackage.json",
                                         "/assets/pdfjs/pdf.mjs.LICENSE", "/assets/replay.html%00.js",
                                         "/no-app/s/no-recording/0", "/no-app/s/no-recording/0/replay.json"));

TEST(PageFallbackTest, WithoutThePageFilesTheRecordingShowsItsEventList) {
    RunningServer server;  // no web folders
    ASSERT_EQ(post(server.ingestURL("rec-1"), encodeBatch(everyKindOfEvent())).status, 201);
    const Reply page = get(server.url("/app-1/s/rec-1/0"));
    EXPECT_EQ(page.status, 200);
    EXPECT_NE(page.body.find("<code>qm.ios.TouchEvent</code>"), std::string::npos);
    const Reply unknown = get(server.url("/app-1/s/rec-9/0"));
    EXPECT_EQ(unknown.status, 404);
    EXPECT_NE(unknown.body.find("no such recording"), std::string::npos);
}

}  // namespace
}  // namespace qlm_test
