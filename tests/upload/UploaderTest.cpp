// The Uploader against a real HTTP server: what goes on the wire, when, and what each reply does.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <thread>
#include <vector>

#include "tests/support/AllocationFaults.h"
#include "wire/qm_core.pb.h"
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
    uploader->stop();                              // an empty buffer makes no request
    uploader->append(qlm_test::numberedEvent(4));  // after stop: stays, unsent by the timer
    EXPECT_TRUE(uploader->flush(std::chrono::steady_clock::now() + std::chrono::seconds(10)));
    EXPECT_EQ(uploader->eventBufferCount(), 1u);

    expectSentOnceInOrder(server, 4);
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3u);
    qm::EventList last;
    last.set_appid("app-1");
    *last.add_events() = qlm_test::numberedEvent(2);
    *last.add_events() = qlm_test::numberedEvent(3);
    EXPECT_EQ(requests[2].body, last.SerializeAsString()) << "the body is the encoded list, nothing more";
}

// A capture's message as the send builds it: which thread asked, and whether it could be built.
class CountedCapture final : public EventSink::Capture {
public:
    explicit CountedCapture(bool buildable) : buildable_(buildable) { message_.set_loglevel(qm::core::LogEvent_LogLevel_WARN); }
    google::protobuf::Message* message() noexcept override {
        builtOn = std::this_thread::get_id();
        return buildable_ ? &message_ : nullptr;
    }
    std::optional<std::thread::id> builtOn;  // written by the send, read after it

private:
    const bool buildable_;
    qm::core::LogEvent message_;
};

TEST_F(UploaderTest, CapturesAreBuiltByTheSendNotWhenAppendedAndOneThatCantBeIsLeftOut) {
    IngestServer server;
    auto uploader = makeUploader(server);
    ASSERT_TRUE(uploader);
    const std::vector<std::shared_ptr<CountedCapture>> captures = {
        std::make_shared<CountedCapture>(true), std::make_shared<CountedCapture>(false),
        std::make_shared<CountedCapture>(true)};
    for (uint32_t i = 0; i < captures.size(); ++i) uploader->append(qlm_test::numberedEvent(i), captures[i]);
    for (const auto& capture : captures) EXPECT_FALSE(capture->builtOn) << "built as it was appended";
    qlm_test::stopAndSettle(*uploader);
    for (const auto& capture : captures) {
        ASSERT_TRUE(capture->builtOn);
        EXPECT_NE(*capture->builtOn, std::this_thread::get_id()) << "built on the appending thread";
    }
    const auto events = server.events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].seqid(), 0u);
    EXPECT_EQ(events[1].seqid(), 2u);
    qm::core::LogEvent sent;
    ASSERT_TRUE(sent.ParseFromString(events[1].data()));
    EXPECT_EQ(sent.loglevel(), qm::core::LogEvent_LogLevel_WARN);
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
    qlm_test::stopAndSettle(*uploader);  // the next send
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
    qlm_test::stopAndSettle(*uploader);
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
    qlm_test::stopAndSettle(*uploader);
    expectSentOnceInOrder(server, 3);  // nothing is retried
}

// flush waits for each reply to have been handled, and for no longer than it is told.
TEST_F(UploaderTest, FlushReturnsOnceEveryReplyWasHandledOrAtTheDeadline) {
    using std::chrono::steady_clock;
    std::atomic<int> received{0};
    IngestServer server([&](const HttpRequest&) {
        auto response = HttpResponse::text(200, "");
        if (++received == 1) response.delayBeforeReply = std::chrono::milliseconds(500);
        return response;
    });
    auto uploader = makeUploader(server);
    ASSERT_TRUE(uploader);
    EXPECT_TRUE(uploader->flush(steady_clock::now())) << "nothing in flight";
    uploader->append(qlm_test::numberedEvent(0));
    uploader->stop();
    const auto began = steady_clock::now();
    EXPECT_FALSE(uploader->flush(began + std::chrono::milliseconds(50))) << "the reply is still coming";
    EXPECT_LT(steady_clock::now() - began, std::chrono::seconds(1)) << "waited past the deadline";
    EXPECT_EQ(delegate_->accepted, 0);
    EXPECT_TRUE(uploader->flush(steady_clock::now() + std::chrono::seconds(10)));
    EXPECT_EQ(delegate_->accepted, 1) << "returned before the reply was handled";
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
    const std::string tooLong = "Quillmere: Server reply longer than 65536 bytes; its body is ignored.";
    const auto relayOf = [](const std::string& address) {
        return R"([{"type":"DASHBOARD_URL","data":{"dashboardURL":")" + address + R"("}}])";
    };
    // JSON allows white space after the value: the relay stays readable at any length.
    const auto padded = [&](std::size_t length) { return relay + std::string(length - relay.size(), ' '); };
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
        {"CreatedOf64KBIsRead", 201, padded(65536), "https://dash.example/a", 1, {}},
        {"CreatedPast64KBIsNotRead", 201, padded(65537), std::nullopt, 1, {tooLong}},
        {"ServerErrorPast64KB", 500, std::string(1 << 20, 'x'), std::nullopt, 0, {tooLong, code + "500"}},
        {"RelayOfAScript", 201, relayOf("javascript:alert(1)//https://d.example"), std::nullopt, 1, {}},
        {"RelayOfAFileAddress", 201, relayOf("file:///etc/passwd"), std::nullopt, 1, {}},
        {"RelayWithoutScheme", 201, relayOf("dash.example/a"), std::nullopt, 1, {}},
        {"RelayOfPlainHttp", 201, relayOf("http://127.0.0.1:8080"), "http://127.0.0.1:8080", 1, {}},
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
    qlm_test::stopAndSettle(*uploader);
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

qm::Event eventOfSize(uint32_t number, std::size_t dataBytes) {
    auto event = qlm_test::numberedEvent(number);
    event.set_data(std::string(dataBytes, 'd'));
    return event;
}

TEST_F(UploaderTest, ASendPastTheBodyLimitGoesAsSeveralPostsOfWholeEventsInOrder) {
    constexpr std::size_t kMiB = 1024 * 1024;
    IngestServer server([](const HttpRequest&) { return HttpResponse::text(200, ""); });
    auto uploader = makeUploader(server);
    ASSERT_TRUE(uploader);
    // Seven of a MiB fill a part; the tenth alone is past the limit and goes by itself.
    const std::vector<std::size_t> sizes = {kMiB, kMiB, kMiB, kMiB, kMiB, kMiB, kMiB, kMiB, 100, 9 * kMiB, 10};
    for (uint32_t i = 0; i < sizes.size(); ++i) uploader->append(eventOfSize(i, sizes[i]));
    qlm_test::stopAndSettle(*uploader);

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 4u);
    std::vector<std::vector<uint32_t>> parts;
    for (const auto& request : requests) {
        EXPECT_EQ(request.query, requests[0].query);
        qm::EventList list;
        ASSERT_TRUE(list.ParseFromString(request.body));
        EXPECT_EQ(list.appid(), "app-1");
        if (list.events_size() > 1) {
            EXPECT_LE(request.body.size(), Uploader::kMaximumBodyBytes);
        }
        std::vector<uint32_t> numbers;
        for (const auto& event : list.events()) {
            EXPECT_EQ(event.data().size(), sizes[event.seqid()]) << "an event was cut";
            numbers.push_back(event.seqid());
        }
        parts.push_back(numbers);
    }
    // Sent side by side, the parts may arrive in any order; each holds a run of the events.
    std::sort(parts.begin(), parts.end());
    EXPECT_EQ(parts, (std::vector<std::vector<uint32_t>>{{0, 1, 2, 3, 4, 5, 6}, {7, 8}, {9}, {10}}));
}

}  // namespace
