// Loading over HTTP against a real server on loopback: requests as sent, responses as received,
// redirects and authentication challenges as the delegate decides.
#include <gtest/gtest.h>

#include <string>

#include "platform/url/NSInputStream.h"
#include "platform/url/NSURLSession.h"
#include "tests/platform/url/UrlTestSupport.h"

namespace {

using namespace platform;
using namespace qlm_test;

enum class Body { none, data, stream, upload };

class URLSessionExchange : public LoopbackTest,
                           public ::testing::WithParamInterface<std::pair<const char*, Body>> {};

TEST_P(URLSessionExchange, SendsTheRequestAndReportsTheResponse) {
    const auto [method, body] = GetParam();
    const std::string payload = body == Body::none ? "" : std::string("{\"events\":[1,2,3]}");
    auto request = makeRequest(server.url("/echo?x=1"));
    request->setHTTPMethod(method);
    request->setValue("application/json", "Content-Type");
    if (body == Body::data) request->setHTTPBody(NSData::dataWithString(payload));
    if (body == Body::stream) {
        request->setHTTPBodyStream(NSInputStream::inputStreamWithData(NSData::dataWithString(payload)));
    }
    auto session = plainSession();
    CompletionRecorder recorder;
    std::shared_ptr<NSURLSessionTask> task =
        body == Body::upload ? std::shared_ptr<NSURLSessionTask>(session->uploadTaskWithRequest(
                                   request, NSData::dataWithString(payload), recorder.handler()))
                             : session->dataTaskWithRequest(request, recorder.handler());
    task->resume();
    ASSERT_TRUE(recorder.wait());

    const Result result = recorder.result();
    EXPECT_EQ(result.errorCode(), 0);
    EXPECT_EQ(result.status(), std::string(method) == "POST" ? 201 : 200);
    auto http = std::dynamic_pointer_cast<NSHTTPURLResponse>(result.response);
    ASSERT_TRUE(http);
    EXPECT_EQ(http->valueForHTTPHeaderField("x-method"), method);
    EXPECT_EQ(http->MIMEType(), "text/plain");
    ASSERT_TRUE(result.data);
    EXPECT_EQ(result.body(), payload);
    EXPECT_EQ(task->state(), NSURLSessionTaskStateCompleted);

    ASSERT_EQ(server.requestCount(), 1u);
    const HttpRequest sent = server.requests().front();
    EXPECT_EQ(sent.method, method);
    EXPECT_EQ(sent.target, "/echo?x=1");
    EXPECT_EQ(sent.body, payload);
    EXPECT_EQ(sent.header("Content-Type"), "application/json");
    EXPECT_EQ(sent.header("Expect"), std::nullopt) << "the body goes without waiting for 100 Continue";
    EXPECT_EQ(sent.chunked, body == Body::stream) << "a stream of unknown length goes chunked";
}

INSTANTIATE_TEST_SUITE_P(Methods, URLSessionExchange,
                         ::testing::Values(std::pair("GET", Body::none), std::pair("POST", Body::data),
                                           std::pair("POST", Body::stream), std::pair("POST", Body::upload),
                                           std::pair("PUT", Body::data)));

using URLSessionLoading = LoopbackTest;

TEST_F(URLSessionLoading, DeliversTheBodyInPiecesAsTheyArrive) {
    auto delegate = std::make_shared<RecordingDelegate>();
    server.route("GET", "/pieces", [delegate](const HttpRequest&) {
        HttpResponse response = HttpResponse::text(200, "first-");
        response.chunks.push_back("second-");
        response.chunks.push_back("third");
        // Each piece goes out only after the client has seen the one before.
        response.beforeChunk = [delegate](std::size_t piece) {
            delegate->waitUntil(
                [piece](const DelegateRecord& r) { return r.pieces >= static_cast<int>(piece); });
        };
        return response;
    });
    DelegateSession session(delegate);
    session->dataTaskWithRequest(makeRequest(server.url("/pieces")))->resume();
    ASSERT_TRUE(delegate->waitForCompletion());
    const DelegateRecord record = delegate->get();
    EXPECT_EQ(record.body, "first-second-third");
    EXPECT_GE(record.pieces, 3);
    EXPECT_EQ(record.eventsWithoutData(), (std::vector<std::string>{"response 200", "complete"}));
    EXPECT_EQ(record.events.back(), "complete");
    EXPECT_FALSE(record.overlapped);
}

class URLSessionRedirect : public LoopbackTest, public ::testing::WithParamInterface<bool> {};

TEST_P(URLSessionRedirect, FollowsOrReportsTheRedirectResponseAsTheDelegateSays) {
    const bool follow = GetParam();
    auto delegate = std::make_shared<RecordingDelegate>();
    delegate->followRedirects = follow;
    DelegateSession session(delegate);
    auto task = session->dataTaskWithRequest(makeRequest(server.url("/start")));
    task->resume();
    ASSERT_TRUE(delegate->waitForCompletion());
    const std::string next = server.url("/next?from=start");
    EXPECT_EQ(delegate->get().eventsWithoutData(),
              (std::vector<std::string>{"redirect 302 -> " + next, follow ? "response 200" : "response 302",
                                        "complete"}));
    EXPECT_EQ(delegate->get().body, follow ? "arrived by GET" : "moved") << "only the last response's body";
    EXPECT_EQ(task->originalRequest()->URL()->absoluteString(), server.url("/start"));
    EXPECT_EQ(task->currentRequest()->URL()->absoluteString(), follow ? next : server.url("/start"));
    EXPECT_EQ(server.requestCount(), follow ? 2u : 1u);
}

INSTANTIATE_TEST_SUITE_P(Decisions, URLSessionRedirect, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Follow" : "Refuse"; });

struct DispositionCase {
    NSURLSessionAuthChallengeDisposition disposition;
    bool withCredential;
    long expectedStatus;  // 0: the task fails, cancelled
    const char* expectedBody;
};

class URLSessionAuth : public LoopbackTest, public ::testing::WithParamInterface<DispositionCase> {};

TEST_P(URLSessionAuth, AnswersTheChallengeAsTheDelegateSays) {
    const auto& c = GetParam();
    auto delegate = std::make_shared<RecordingDelegate>();
    delegate->challengeDisposition = c.disposition;
    if (c.withCredential) {
        delegate->credential =
            NSURLCredential::credentialWithUser("user", "secret", NSURLCredentialPersistenceNone);
    }
    DelegateSession session(delegate);
    session->dataTaskWithRequest(makeRequest(server.url("/private")))->resume();
    ASSERT_TRUE(delegate->waitForCompletion());

    const DelegateRecord record = delegate->get();
    ASSERT_EQ(record.challenges.size(), 1u);
    auto space = record.challenges.front()->protectionSpace();
    EXPECT_EQ(space->host(), "127.0.0.1");
    EXPECT_EQ(space->port(), server.port());
    EXPECT_EQ(space->realm(), "quill");
    EXPECT_EQ(space->authenticationMethod(), NSURLAuthenticationMethodHTTPBasic);
    EXPECT_EQ(record.challenges.front()->previousFailureCount(), 0);
    EXPECT_EQ(statusOf(record.challenges.front()->failureResponse()), 401);
    EXPECT_EQ(record.errorCode(), c.expectedStatus ? 0L : long{NSURLErrorCancelled});
    EXPECT_EQ(record.response ? statusOf(record.response) : 0, c.expectedStatus);
    EXPECT_EQ(record.body, c.expectedBody);
    EXPECT_EQ(server.requestCount(), c.withCredential ? 2u : 1u);
    EXPECT_EQ(server.requests().back().header("Authorization"),
              c.withCredential ? std::optional(kGoodAuthorization) : std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(
    Dispositions, URLSessionAuth,
    ::testing::Values(DispositionCase{NSURLSessionAuthChallengeUseCredential, true, 200, "welcome"},
                      DispositionCase{NSURLSessionAuthChallengeUseCredential, false, 401, "denied"},
                      DispositionCase{NSURLSessionAuthChallengePerformDefaultHandling, false, 401, "denied"},
                      DispositionCase{NSURLSessionAuthChallengeRejectProtectionSpace, false, 401, "denied"},
                      DispositionCase{NSURLSessionAuthChallengeCancelAuthenticationChallenge, false, 0, ""}));

}  // namespace
