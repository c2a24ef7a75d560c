// Failures and cancellation: time-outs, refused connections, lost connections, cancel at any time.
#include <gtest/gtest.h>

#include <string>

#include "platform/foundation/NSString.h"
#include "platform/url/NSURLSession.h"
#include "tests/platform/url/UrlTestSupport.h"
#include "tests/support/LoopbackHttpServer.h"

namespace {

using namespace platform;
using namespace qlm_test;

class URLSessionFailure : public ::testing::Test {
protected:
    void SetUp() override {
        server.route("GET", "/slow", [](const HttpRequest&) {
            HttpResponse response = HttpResponse::text(200, "too late");
            response.delayBeforeReply = 10s;  // cut short when the server stops
            return response;
        });
        server.route("GET", "/stalls", [](const HttpRequest&) {
            HttpResponse response = HttpResponse::text(200, "first");
            response.chunks.push_back("never");
            response.delayBetweenChunks = 10s;
            return response;
        });
        server.route("GET", "/fast", [](const HttpRequest&) { return HttpResponse::text(200, "quick"); });
        server.route("GET", "/hangup", [](const HttpRequest&) {
            HttpResponse response;
            response.closeWithoutReply = true;
            return response;
        });
        ASSERT_TRUE(server.start());
    }
    void TearDown() override { gate->open(); }

    std::shared_ptr<NSURLSession> plainSession() {
        return NSURLSession::sessionWithConfiguration(
            NSURLSessionConfiguration::defaultSessionConfiguration());
    }

    LoopbackHttpServer server;
    std::shared_ptr<Gate> gate = std::make_shared<Gate>();
};

TEST_F(URLSessionFailure, TimesOutWhenNoBytesComeForTheRequestsInterval) {
    CompletionRecorder result;
    plainSession()->dataTaskWithRequest(makeRequest(server.url("/slow"), 0.3), result.handler())->resume();
    ASSERT_TRUE(result.wait());
    ASSERT_NE(result.error(), nullptr);
    EXPECT_EQ(result.error()->domain(), NSURLErrorDomain);
    EXPECT_EQ(result.errorCode(), NSURLErrorTimedOut);
    EXPECT_EQ(result.error()->localizedDescription(), "The request timed out.");
    EXPECT_EQ(NSStringValue(
                  result.error()->userInfo()->objectForKey(std::string(NSURLErrorFailingURLStringErrorKey))),
              server.url("/slow"));
    EXPECT_EQ(result.data(), nullptr);
}

TEST_F(URLSessionFailure, ReportsARefusedConnection) {
    LoopbackHttpServer closed;
    ASSERT_TRUE(closed.start());
    const std::string url = closed.url("/nobody");
    closed.stop();

    CompletionRecorder result;
    plainSession()->dataTaskWithRequest(makeRequest(url), result.handler())->resume();
    ASSERT_TRUE(result.wait());
    EXPECT_EQ(result.errorCode(), NSURLErrorCannotConnectToHost);
    EXPECT_EQ(result.error()->localizedDescription(), "Could not connect to the server.");
}

TEST_F(URLSessionFailure, ReportsAConnectionClosedWithoutAReply) {
    CompletionRecorder result;
    plainSession()->dataTaskWithRequest(makeRequest(server.url("/hangup")), result.handler())->resume();
    ASSERT_TRUE(result.wait());
    EXPECT_EQ(result.errorCode(), NSURLErrorNetworkConnectionLost);
}

TEST_F(URLSessionFailure, RefusesAURLNoProtocolTakes) {
    CompletionRecorder result;
    plainSession()->dataTaskWithURL(NSURL::URLWithString("gopher://127.0.0.1/x"), result.handler())->resume();
    ASSERT_TRUE(result.wait());
    EXPECT_EQ(result.errorCode(), NSURLErrorUnsupportedURL);
}

TEST_F(URLSessionFailure, CancellingMidBodyCompletesOnceWithCancelled) {
    auto delegate = std::make_shared<RecordingDelegate>();
    delegate->cancelOnFirstData = true;
    DelegateSession session(delegate);
    auto task = session->dataTaskWithRequest(makeRequest(server.url("/stalls")));
    task->resume();
    ASSERT_TRUE(delegate->waitForCompletion());
    EXPECT_EQ(delegate->errorCode(), NSURLErrorCancelled);
    EXPECT_EQ(task->state(), NSURLSessionTaskStateCompleted);
    EXPECT_EQ(task->error()->code(), NSURLErrorCancelled);
    EXPECT_EQ(task->error()->localizedDescription(), "cancelled");

    // Whatever was still on its way has been delivered once this block runs on the queue.
    task->cancel();
    auto drained = std::make_shared<std::atomic<bool>>(false);
    session->delegateQueue()->addOperationWithBlock([drained] { *drained = true; });
    ASSERT_TRUE(waitUntil([&] { return drained->load(); }));
    EXPECT_EQ(delegate->completions(), 1);
    EXPECT_EQ(delegate->body(), "first");
    EXPECT_EQ(delegate->events().back(), "complete -999");
}

TEST_F(URLSessionFailure, CancellingBeforeOrWhileLoadingCallsTheHandlerOnce) {
    auto session = plainSession();
    CompletionRecorder never;
    auto unstarted = session->dataTaskWithRequest(makeRequest(server.url("/fast")), never.handler());
    unstarted->cancel();
    ASSERT_TRUE(never.wait());
    EXPECT_EQ(never.errorCode(), NSURLErrorCancelled);
    unstarted->resume();

    CompletionRecorder waiting;
    auto task = session->dataTaskWithRequest(makeRequest(server.url("/slow")), waiting.handler());
    task->resume();
    ASSERT_TRUE(server.waitForRequests(1));
    task->cancel();
    task->cancel();
    ASSERT_TRUE(waiting.wait());
    EXPECT_EQ(waiting.errorCode(), NSURLErrorCancelled);

    auto drained = std::make_shared<std::atomic<bool>>(false);
    session->delegateQueue()->addOperationWithBlock([drained] { *drained = true; });
    ASSERT_TRUE(waitUntil([&] { return drained->load(); }));
    EXPECT_EQ(never.calls(), 1);
    EXPECT_EQ(waiting.calls(), 1);
    EXPECT_EQ(server.requestCount(), 1u) << "the cancelled task never reached the server";
}

TEST_F(URLSessionFailure, ASlowRequestHoldsUpNoOther) {
    server.route("GET", "/gated", [gate = gate](const HttpRequest&) {
        gate->wait();
        return HttpResponse::text(200, "finally");
    });
    auto session = plainSession();
    CompletionRecorder slow;
    CompletionRecorder fast;
    session->dataTaskWithRequest(makeRequest(server.url("/gated")), slow.handler())->resume();
    ASSERT_TRUE(server.waitForRequests(1));
    session->dataTaskWithRequest(makeRequest(server.url("/fast")), fast.handler())->resume();

    ASSERT_TRUE(fast.wait()) << "the fast request finished while the slow one was held";
    EXPECT_EQ(fast.body(), "quick");
    EXPECT_EQ(slow.calls(), 0);
    gate->open();
    ASSERT_TRUE(slow.wait());
    EXPECT_EQ(slow.body(), "finally");
}

TEST_F(URLSessionFailure, ATaskOfAnInvalidatedSessionEndsCancelled) {
    auto session = plainSession();
    session->finishTasksAndInvalidate();
    CompletionRecorder result;
    session->dataTaskWithRequest(makeRequest(server.url("/fast")), result.handler())->resume();
    ASSERT_TRUE(result.wait());
    EXPECT_EQ(result.errorCode(), NSURLErrorCancelled);
    EXPECT_EQ(server.requestCount(), 0u);
}

}  // namespace
