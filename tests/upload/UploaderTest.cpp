// The Uploader against a real HTTP server: what goes on the wire, when, and what each reply does.
#include <gtest/gtest.h>

#include <thread>

#include "tests/support/AllocationFaults.h"
#include "tests/support/LogCapture.h"
#include "tests/upload/UploadTestSupport.h"

using namespace quillmere;
using qlm_test::HttpRequest;
using qlm_test::HttpResponse;
using qlm_test::IngestServer;

namespace {

void expectSentOnceInOrder(const IngestServer& server, uint32_t count) {
    const auto events = server.events();
    ASSERT_EQ(events.size(), count);
    for (uint32_t i = 0; i < count; ++i) EXPECT_EQ(events[i].seqid(), i);
}

class UploaderTest : public ::testing::Test {
protected:
    std::shared_ptr<Uploader> makeUploader(const IngestServer& server) {
        return Uploader::make(Session::make("app-1"), server.serverURL(), delegate_);
    }
    std::shared_ptr<qlm_test::RecordingDelegate> delegate_ = std::make_shared<qlm_test::RecordingDelegate>();
};

TEST_F(UploaderTest, TheTimerSendsEachIntervalAndStopSendsTheRestThenLeavesItCancelled) {
    IngestServer server;
    auto uploader = makeUploader(server);
    ASSERT_TRUE(uploader);
    uploader->start();
    uploader->append(qlm_test::numberedEvent(0));
    ASSERT_TRUE(server.waitForEvents(1));
    uploader->append(qlm_test::numberedEvent(1));
    ASSERT_TRUE(server.waitForEvents(2)) << "the timer was re-armed after the first send";
    uploader->append(qlm_test::numberedEvent(2));
    uploader->append(qlm_test::numberedEvent(3));
    uploader->stop();
    EXPECT_TRUE(uploader->timer()->isCancelled());
    uploader->stop();                              // an empty buffer makes no request
    uploader->append(qlm_test::numberedEvent(4));  // after stop: stays, unsent
    qlm_test::stopAndSettle(uploader, false);

    expectSentOnceInOrder(server, 4);
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3u);
    qm::EventList last;
    last.set_appid("app-1");
    *last.add_events() = qlm_test::numberedEvent(2);
    *last.add_events() = qlm_test::numberedEvent(3);
    EXPECT_EQ(requests[2].body, last.SerializeAsString()) << "the body is the encoded list, nothing more";
}

TEST_F(UploaderTest, ABatchWithNoMemoryForItsBodyStaysForTheNextSend) {
    IngestServer server;
    auto uploader = makeUploader(server);
    ASSERT_TRUE(uploader);
    auto large = qlm_test::numberedEvent(0);
    large.set_data(std::string(std::size_t{2} << 20, 'p'));
    uploader->append(large);
    uploader->append(qlm_test::numberedEvent(1));
    {
        qlm_test::LogCapture log;
        qlm_test::AllocationFaults::failFromSize = std::size_t{1} << 20;  // the body's buffer
        uploader->stop();
        qlm_test::AllocationFaults::failFromSize = 0;
        EXPECT_EQ(log.count("Quillmere: Unexpected upload error: std::bad_alloc."), 1u);
    }
    EXPECT_EQ(uploader->eventBufferCount(), 2u);
    uploader->stop();  // the next send
    qlm_test::stopAndSettle(uploader, false);
    expectSentOnceInOrder(server, 2);
    EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(UploaderTest, EventsAppendedWhileSendsRunAreNeitherLostNorSentTwice) {
    IngestServer server;
    auto uploader = makeUploader(server);
    ASSERT_TRUE(uploader);
    uploader->start();
    std::atomic<bool> enough{false};
    uint32_t appended = 0;
    std::thread appender([&] {
        while (!enough.load()) {
            uploader->append(qlm_test::numberedEvent(appended++));
            std::this_thread::sleep_for(std::chrono::microseconds(200));  // pacing only
        }
    });
    const bool sentSeveral =
        qlm_test::waitUntil([&] { return server.requestCount() >= 3; }, std::chrono::milliseconds(10000));
    enough.store(true);
    appender.join();
    ASSERT_TRUE(sentSeveral);
    qlm_test::stopAndSettle(uploader);
    expectSentOnceInOrder(server, appended);
}

TEST_F(UploaderTest, AServerThatIsDownCostsExactlyTheBatchesSentMeanwhile) {
    std::atomic<int> received{0};
    IngestServer server([&](const HttpRequest&) {
        HttpResponse response = HttpResponse::text(200, "");
        response.closeWithoutReply = ++received <= 2;
        return response;
    });
    auto uploader = makeUploader(server);
    ASSERT_TRUE(uploader);
    uploader->start();
    for (uint32_t i = 0; i < 2; ++i) {
        uploader->append(qlm_test::numberedEvent(i));
        ASSERT_TRUE(qlm_test::waitUntil([&] { return server.requestCount() == i + 1; }));
    }
    uploader->append(qlm_test::numberedEvent(2));
    ASSERT_TRUE(qlm_test::waitUntil([&] { return delegate_->accepted == 1; }));
    qlm_test::stopAndSettle(uploader);
    expectSentOnceInOrder(server, 3);  // nothing is retried
}

struct ReplyCase {
    const char* name;
    int status;  // 0: the connection closes without a reply
    std::string body;
    std::optional<std::string> dashboardURL;  // what the delegate holds afterwards
    int accepted;
    std::vector<std::string> logPrefixes;
};

std::vector<ReplyCase> replyCases() {
    const std::string relay =
        R"([{"type":"DASHBOARD_URL","data":{"dashboardURL":"https://dash.example/a"}}])";
    const std::string code = "Quillmere: server error code: ", body = "Quillmere: server error body: ";
    // clang-format off
    return {
        {"CreatedWithRelaySetsTheAddress", 201, relay, "https://dash.example/a", 1, {}},
        {"CreatedMalformedJSONIsSilent", 201, "[{\"type\":", std::nullopt, 1, {}},
        {"OkBodyIsNotRead", 200, relay, std::nullopt, 1, {}},
        {"NoContent", 204, "", std::nullopt, 1, {}},
        {"ServerErrorWithTextBody", 500, "down \xE2\x9C\x93", std::nullopt, 0, {code + "500", body + "down \xE2\x9C\x93"}},
        {"NotFoundWithBinaryBody", 404, std::string("\xFF\xFE\x00\x01", 4), std::nullopt, 0, {code + "404"}},
        {"BadRequestWithRelayBody", 400, relay, std::nullopt, 0, {code + "400", body + relay}},
        {"NoReply", 0, "", std::nullopt, 0, {"Quillmere: Upload task failed: "}},
    };
    // clang-format on
}

class ServerReplies : public UploaderTest, public ::testing::WithParamInterface<ReplyCase> {};

TEST_P(ServerReplies, EachStatusHasItsEffect) {
    const auto& test = GetParam();
    qlm_test::LogCapture log;
    IngestServer server([&](const HttpRequest&) {
        HttpResponse response = HttpResponse::text(test.status ? test.status : 200, test.body);
        response.closeWithoutReply = test.status == 0;
        return response;
    });
    auto uploader = makeUploader(server);
    ASSERT_TRUE(uploader);
    uploader->append(qlm_test::numberedEvent(0));
    qlm_test::stopAndSettle(uploader);
    EXPECT_EQ(delegate_->dashboardURL(), test.dashboardURL);
    EXPECT_EQ(delegate_->accepted, test.accepted);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), test.logPrefixes.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        // The task error ends with the system's wording; every other line is whole.
        EXPECT_EQ(test.status ? lines[i] : lines[i].substr(0, test.logPrefixes[i].size()),
                  test.logPrefixes[i]);
    }
}

INSTANTIATE_TEST_SUITE_P(Table, ServerReplies, ::testing::ValuesIn(replyCases()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
