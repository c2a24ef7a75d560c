// Uploads end to end: a real client posts to the server on a loopback socket, and what was stored
// is read back through the store and the views.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/server/ServerHarness.h"
#include "wire/qm_ios.pb.h"

namespace qlm_test {
namespace {

using nlohmann::json;
constexpr auto npos = std::string::npos;

TEST(IngestTest, ValidBatchIsStoredOnceInSeqOrderAndRelaysTheDashboard) {
    RunningServer server;
    const auto sent = everyKindOfEvent();
    const std::vector<qm::Event> events(sent.rbegin(), sent.rend());  // arrival order is not display order

    for (int attempt = 0; attempt < 2; ++attempt) {  // the library retries a batch it got no answer to
        const Reply reply = post(server.ingestURL("rec-1"), encodeBatch(events));
        ASSERT_EQ(reply.status, 201) << reply.error << reply.body;
        EXPECT_EQ(reply.contentType, "application/json");
        EXPECT_EQ(
            json::parse(reply.body),
            json::parse(R"([{"type":"DASHBOARD_URL","data":{"dashboardURL":")" + server.url() + R"("}}])"));
    }

    const Reply view = get(server.url("/app-1/s/rec-1/0/events.json"));
    ASSERT_EQ(view.status, 200);
    const json stored = json::parse(view.body)["events"];
    ASSERT_EQ(stored.size(), 7u);
    for (std::size_t i = 0; i < stored.size(); ++i) {
        EXPECT_EQ(stored[i]["seqID"], i);
        EXPECT_EQ(stored[i]["type"], sent[i].type());
        EXPECT_EQ(stored[i]["time"], 1700000000000.0 + i * 100.0);
    }
    EXPECT_EQ(stored[1]["message"]["userID"], "user-<7>");
    EXPECT_EQ(stored[3]["message"]["pdfData"], json({{"size", 3000}})) << "PDF bytes must not be inlined";
    EXPECT_EQ(stored[6]["message"]["status"], 204);
}

TEST(IngestTest, ConcurrentUploadsAreAllStoredAndIndexed) {
    RunningServer server;
    constexpr int kThreads = 6;
    constexpr int kBatches = 4;
    // Each batch's screen capture a real page, so that poppler reads captures on several threads.
    const std::string screen = capturedScreen("Card frozen").SerializeAsString();
    const auto batch = [&](uint32_t first) {
        auto events = everyKindOfEvent(first);
        events[3].set_data(screen);
        return encodeBatch(events);
    };
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            // Each thread extends a session of its own, and one shared with every other thread.
            for (uint32_t b = 0; b < kBatches; ++b) {
                failures += post(server.ingestURL("rec-" + std::to_string(t)), batch(b * 7)).status != 201;
                failures += post(server.ingestURL("shared"), batch((t * kBatches + b) * 7)).status != 201;
            }
        });
    }
    for (auto& thread : threads) thread.join();

    EXPECT_EQ(failures, 0);
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(server.stored("rec-" + std::to_string(t)), 7u * kBatches);
    EXPECT_EQ(server.stored("shared"), 7u * kBatches * kThreads);
    const json found = json::parse(get(server.url("/recordings.json?q=frozen")).body)["recordings"];
    ASSERT_EQ(found.size(), kThreads + 1u);
    for (const json& recording : found) {
        const int64_t batches = recording["recordingID"] == "shared" ? kThreads * kBatches : kBatches;
        EXPECT_EQ(recording["hits"], batches) << recording["recordingID"];
    }
}

TEST(ViewsTest, SessionPageListsEventsInOrderEscapedAndLinksAFrameServedByteForByte) {
    RunningServer server;
    ASSERT_EQ(post(server.ingestURL("rec-1"), encodeBatch(everyKindOfEvent())).status, 201);
    qm::ios::PDFViewCapture capture;
    capture.set_pdfdata(fakePdf(3 * 1024 * 1024));  // past the size at which curl asks to continue
    ASSERT_EQ(post(server.ingestURL("rec-1"), encodeBatch({eventOf(9, capture)})).status, 201);

    const Reply page = get(server.url("/app-1/s/rec-1/0/events"));
    ASSERT_EQ(page.status, 200);
    EXPECT_EQ(page.contentType, "text/html; charset=utf-8");
    std::size_t previous = 0;
    for (const qm::Event& event : everyKindOfEvent()) {
        const std::size_t at = page.body.find("<code>" + event.type() + "</code>");
        EXPECT_TRUE(at != npos && at > previous) << event.type() << " missing or out of order";
        previous = at;
    }
    EXPECT_NE(page.body.find("user-&lt;7&gt;"), npos);
    EXPECT_EQ(page.body.find("user-<7>"), npos) << "stored text must be escaped";
    EXPECT_NE(page.body.find("href=\"/app-1/s/rec-1/0/frames/9.pdf\""), npos);

    const Reply frame = get(server.url("/app-1/s/rec-1/0/frames/9.pdf"));
    EXPECT_EQ(frame.status, 200);
    EXPECT_EQ(frame.contentType, "application/pdf");
    EXPECT_TRUE(frame.body == capture.pdfdata()) << "got " << frame.body.size() << " bytes";
}

// A long recording is read a page at a time, each view naming the cursor of the next page.
TEST(ViewsTest, ALongRecordingIsServedInPagesThatJoinUpExactly) {
    RunningServer server;
    const qm::Event log = everyKindOfEvent()[2];
    std::vector<qm::Event> events(2500, log);
    for (uint32_t seq = 0; seq < events.size(); ++seq) events[seq].set_seqid(seq);
    ASSERT_EQ(post(server.ingestURL("long"), encodeBatch(events)).status, 201);

    std::vector<uint32_t> seen;
    std::string next = "";
    do {
        const Reply page = get(server.url("/app-1/s/long/0/events.json" + next));
        ASSERT_EQ(page.status, 200);
        const json document = json::parse(page.body);
        EXPECT_LE(document["events"].size(), 1000u);
        for (const auto& event : document["events"]) seen.push_back(event["seqID"]);
        next = document["next"].is_null() ? "" : "?after=" + std::to_string(document["next"].get<uint32_t>());
    } while (!next.empty());
    ASSERT_EQ(seen.size(), 2500u);
    for (uint32_t i = 0; i < seen.size(); ++i) ASSERT_EQ(seen[i], i);

    const json small = json::parse(get(server.url("/app-1/s/long/0/replay.json?after=2489&limit=5")).body);
    EXPECT_EQ(small["next"], 2494);
    EXPECT_EQ(small["logs"].size(), 5u);
    EXPECT_EQ(small["logs"][0]["seqID"], 2490);
    EXPECT_NE(get(server.url("/app-1/s/long/0/events")).body.find("/events?after=999\">Next page"), npos);
    for (const char* bad : {"?limit=0", "?limit=10001", "?after=x", "?after=-1"})
        EXPECT_EQ(get(server.url("/app-1/s/long/0/events.json") + bad).status, 400) << bad;
}

TEST(ViewsTest, ListedAddressLeadsToASessionWhoseIdentifiersNeedEscaping) {
    RunningServer server;
    ASSERT_EQ(
        post(server.url("/i?a=my%20app%2B1&r=rec%2F2&t=t&s=7&ir=t"), encodeBatch({everyKindOfEvent()[2]}, "my app+1")).status,
        201);
    const json list = json::parse(get(server.url("/recordings.json")).body)["recordings"];
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0]["recordingID"], "rec/2");
    const std::string path = list[0]["url"];
    EXPECT_EQ(get(server.url(path)).status, 200) << path;
    EXPECT_NE(get(server.url("/")).body.find("href=\"" + path + "\""), npos);
}

class NotFoundTest : public testing::TestWithParam<const char*> {};

TEST_P(NotFoundTest, Answers404) {
    RunningServer server;
    ASSERT_EQ(post(server.ingestURL("rec-1"), encodeBatch(everyKindOfEvent())).status, 201);
    EXPECT_EQ(get(server.url(GetParam())).status, 404);
}

// Every part of the key must take part in the lookup; a frame must be a stored capture.
INSTANTIATE_TEST_SUITE_P(Paths, NotFoundTest,
                         testing::Values("/other-app/s/rec-1/0", "/app-1/s/rec-1/1", "/app-1/s/rec-1/zero",
                                         "/app-1/s/rec-2/0/events.json", "/app-1/s/rec-1/0/frames/2.pdf",
                                         "/app-1/s/rec-1/0/frames/99.pdf", "/favicon.ico"));

// Each bad upload is refused as a whole and leaves nothing behind.
struct BadUpload {
    std::string name;
    std::string query;
    std::function<std::string()> body;
    long status = 400;
    std::string method = "POST";
    friend void PrintTo(const BadUpload& upload, std::ostream* out) { *out << upload.name; }
};

const std::string kQuery = "a=app-1&r=rec-1&t=tab-1&s=0&ir=t";

std::string good() {
    return encodeBatch(everyKindOfEvent());
}

// A batch of good events but for the last, which `spoil` made bad.
std::function<std::string()> spoiled(void (*spoil)(qm::Event&)) {
    return [spoil] {
        auto events = everyKindOfEvent();
        spoil(events.back());
        return encodeBatch(events);
    };
}

// One good event whose seqID field is then repeated on the wire as 2^32 + 7, which protobuf alone
// would read as 7.
std::string seqIDPast32Bits() {
    std::string event = everyKindOfEvent().front().SerializeAsString() + "\x28\x87\x80\x80\x80\x10";
    std::string body = "\x0a";  // field 1, length-delimited: one event
    for (std::size_t n = event.size(); ; n >>= 7) {
        body += static_cast<char>((n & 0x7f) | (n > 0x7f ? 0x80 : 0));
        if (n <= 0x7f) break;
    }
    return body + event;
}

class BadUploadTest : public testing::TestWithParam<BadUpload> {};

TEST_P(BadUploadTest, IsRefusedAndStoresNothing) {
    RunningServer server;
    const BadUpload& upload = GetParam();
    const Reply reply = request(upload.method, server.url("/i?" + upload.query), upload.body());
    EXPECT_EQ(reply.status, upload.status) << reply.error << reply.body;
    EXPECT_TRUE(server.store().recordings().empty());
}

const BadUpload kBadUploads[] = {
    {"NoTab", "a=app-1&r=rec-1&s=0&ir=t", good},
    {"NoFlag", "a=app-1&r=rec-1&t=tab-1&s=0", good},
    {"EmptyApp", "a=&r=rec-1&t=tab-1&s=0&ir=t", good},
    {"AppTwice", kQuery + "&a=app-2", good},
    {"SessionNegative", "a=app-1&r=rec-1&t=tab-1&s=-1&ir=t", good},
    {"SessionTooLarge", "a=app-1&r=rec-1&t=tab-1&s=4294967296&ir=t", good},
    {"FlagNotT", "a=app-1&r=rec-1&t=tab-1&s=0&ir=f", good},
    {"BrokenEscape", "a=app%2&r=rec-1&t=tab-1&s=0&ir=t", good},
    {"ControlCharacterInID", "a=app%0A1&r=rec-1&t=tab-1&s=0&ir=t", good},
    {"BodyCutShort", kQuery, [] { return good().substr(0, good().size() / 2); }},
    {"BodyForAnotherApp", kQuery, [] { return encodeBatch(everyKindOfEvent(), "app-2"); }},
    {"UnknownType", kQuery, spoiled([](qm::Event& e) { e.set_type("qm.Activate"); })},
    {"InnerDataTruncated", kQuery,
     spoiled([](qm::Event& e) { e.set_data(e.data().substr(0, e.data().size() - 1)); })},
    {"InnerStringNotUtf8", kQuery, spoiled([](qm::Event& e) {
         e.set_type("qm.Identify");
         e.set_data(std::string("\x0a\x02\xc3\x28", 4));  // userID: an invalid two-byte sequence
     })},
    {"SeqIDRepeated", kQuery, spoiled([](qm::Event& e) { e.set_seqid(0); })},
    {"TimeNotFinite", kQuery,
     spoiled([](qm::Event& e) { e.set_time(std::numeric_limits<double>::quiet_NaN()); })},
    {"WrongMethod", kQuery, good, 405, "PUT"},
    {"EmptyBody", kQuery, [] { return std::string(); }},
    {"NoEvents", kQuery, [] { return encodeBatch({}); }},
    {"SeqIDPast32Bits", kQuery, seqIDPast32Bits},
};

INSTANTIATE_TEST_SUITE_P(Table, BadUploadTest, testing::ValuesIn(kBadUploads),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace qlm_test
