// Failures and cancellation: time-outs, refused and lost connections, cancel at any time.
#include <gtest/gtest.h>

#include <string>

#include "platform/foundation/NSString.h"
#include "platform/url/NSURLSession.h"
#include "tests/platform/url/UrlTestSupport.h"

namespace {

using namespace platform;
using namespace qlm_test;

using URLSessionFailure = LoopbackTest;

TEST_F(URLSessionFailure, ReportsEachFailureWithItsErrorAndNoData) {
    server.route("GET", "/hangup", [](const HttpRequest&) {
        HttpResponse response;
        response.closeWithoutReply = true;
        return response;
    });
    LoopbackHttpServer closed;
    ASSERT_TRUE(closed.start());
    const std::string refusing = closed.url("/nobody");
    closed.stop();

    const struct {
        std::string url;
        double timeout;
        long code;
    } cases[] = {
        {server.url("/gated"), 0.3, NSURLErrorTimedOut},  // no bytes for the request's interval
        {refusing, 10, NSURLErrorCannotConnectToHost},
        {server.url("/hangup"), 10, NSURLErrorNetworkConnectionLost},
        {"gopher://127.0.0.1/x", 10, NSURLErrorUnsupportedURL},
    };
    for (const auto& c : cases) {
        const Result result = load(plainSession(), makeRequest(c.url, c.timeout));
        ASSERT_NE(result.error, nullptr) << c.url;
        EXPECT_EQ(result.error->domain(), NSURLErrorDomain) << c.url;
        EXPECT_EQ(result.errorCode(), c.code) << c.url;
        EXPECT_EQ(result.data, nullptr) << c.url;
        EXPECT_EQ(result.response, nullptr) << c.url;
        EXPECT_EQ(NSStringValue(result.error->userInfo()->objectForKey(
                      std::string(NSURLErrorFailingURLStringErrorKey))),
                  c.url);
    }
}

TEST_F(URLSessionFailure, CancellingMidBodyCompletesOnceWithCancelled) {
    server.route("GET", "/stalls", [](const HttpRequest&) {
        HttpResponse response = HttpResponse::text(200, "first");
        response.chunks.push_back("never");
        response.delayBetweenChunks = 10s;  // cut short when the server stops
        return response;
    });
    auto delegate = std::make_shared<RecordingDelegate>();
    delegate->cancelOnFirstData = true;
    DelegateSession session(delegate);
    auto task = session->dataTaskWithRequest(makeRequest(server.url("/stalls")));
    task->resume();
    ASSERT_TRUE(delegate->waitForCompletion());
    EXPECT_EQ(task->state(), NSURLSessionTaskStateCompleted);
    EXPECT_EQ(task->error()->code(), NSURLErrorCancelled);

    // Whatever was still on its way has been delivered once this block runs on the queue.
    task->cancel();
    auto drained = std::make_shared<std::atomic<bool>>(false);
    session->delegateQueue()->addOperationWithBlock([drained] { *drained = true; });
    ASSERT_TRUE(waitUntil([&] { return drained->load(); }));
    const DelegateRecord record = delegate->get();
    EXPECT_EQ(record.completions, 1);
    EXPECT_EQ(record.body, "first");
    EXPECT_EQ(record.events.back(), "complete -999");
}

TEST_F(URLSessionFailure, CancellingBeforeOrWhileLoadingCallsTheHandlerOnce) {
    auto session = plainSession();
    CompletionRecorder unstarted;
    auto never = session->dataTaskWithRequest(makeRequest(server.url("/echo")), unstarted.handler());
    never->cancel();
    never->resume();
    CompletionRecorder loading;
    auto task = session->dataTaskWithRequest(makeRequest(server.url("/gated")), loading.handler());
    task->resume();
    ASSERT_TRUE(server.waitForRequests(1));
    task->cancel();
    task->cancel();
    ASSERT_TRUE(unstarted.wait() && loading.wait());

    auto drained = std::make_shared<std::atomic<bool>>(false);
    session->delegateQueue()->addOperationWithBlock([drained] { *drained = true; });
    ASSERT_TRUE(waitUntil([&] { return drained->load(); }));
    for (const auto& recorder : {unstarted, loading}) {
        EXPECT_EQ(recorder.result().errorCode(), NSURLErrorCancelled);
        EXPECT_EQ(recorder.result().calls, 1);
    }
    EXPECT_EQ(server.requestCount(), 1u) << "the task cancelled before it started never reached the server";
}

TEST_F(URLSessionFailure, ASlowRequestHoldsUpNoOther) {
    auto session = plainSession();
    CompletionRecorder slow;
    session->dataTaskWithRequest(makeRequest(server.url("/gated")), slow.handler())->resume();
    ASSERT_TRUE(server.waitForRequests(1));
    EXPECT_EQ(load(session, makeRequest(server.url("/next"))).body(), "arrived by GET");
    EXPECT_EQ(slow.result().calls, 0);
    gate->open();
    ASSERT_TRUE(slow.wait());
    EXPECT_EQ(slow.result().body(), "finally");
}

}  // namespace
