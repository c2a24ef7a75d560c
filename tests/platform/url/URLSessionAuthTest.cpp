// HTTP authentication: a 401 with WWW-Authenticate becomes a challenge the delegate answers.
#include <gtest/gtest.h>

#include <string>

#include "platform/url/NSURLSession.h"
#include "tests/platform/url/UrlTestSupport.h"
#include "tests/support/LoopbackHttpServer.h"

namespace {

using namespace platform;
using namespace qlm_test;

const char* const kGoodAuthorization = "Basic dXNlcjpzZWNyZXQ=";  // user:secret

class URLSessionAuth : public ::testing::Test {
protected:
    void SetUp() override {
        server.route("GET", "/private", [](const HttpRequest& request) {
            if (request.header("Authorization") == kGoodAuthorization)
                return HttpResponse::text(200, "welcome");
            return HttpResponse::text(401, "denied")
                .withHeader("WWW-Authenticate", "Basic realm=\"quill\", charset=\"UTF-8\"");
        });
        ASSERT_TRUE(server.start());
    }

    LoopbackHttpServer server;
};

struct DispositionCase {
    const char* name;
    NSURLSessionAuthChallengeDisposition disposition;
    bool withCredential;
    long expectedStatus;  // 0: the task fails
    long expectedError;
    const char* expectedBody;
};

void PrintTo(const DispositionCase& c, std::ostream* os) {
    *os << c.name;
}

class URLSessionAuthDisposition : public URLSessionAuth,
                                  public ::testing::WithParamInterface<DispositionCase> {};

TEST_P(URLSessionAuthDisposition, AnswersTheChallengeAsTheDelegateSays) {
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

    ASSERT_EQ(delegate->challenges().size(), 1u);
    auto challenge = delegate->challenges().front();
    EXPECT_EQ(challenge->protectionSpace()->host(), "127.0.0.1");
    EXPECT_EQ(challenge->protectionSpace()->port(), server.port());
    EXPECT_EQ(challenge->protectionSpace()->protocol(), "http");
    EXPECT_EQ(challenge->protectionSpace()->realm(), "quill");
    EXPECT_EQ(challenge->protectionSpace()->authenticationMethod(), NSURLAuthenticationMethodHTTPBasic);
    EXPECT_EQ(challenge->previousFailureCount(), 0);
    EXPECT_EQ(statusOf(challenge->failureResponse()), 401);
    EXPECT_NE(challenge->sender(), nullptr);

    EXPECT_EQ(delegate->errorCode(), c.expectedError);
    if (c.expectedStatus != 0) {
        EXPECT_EQ(statusOf(delegate->response()), c.expectedStatus);
        EXPECT_EQ(delegate->body(), c.expectedBody);
    } else {
        EXPECT_EQ(delegate->response(), nullptr);
    }
    const auto requests = server.requests();
    EXPECT_EQ(requests.size(), c.withCredential ? 2u : 1u);
    if (c.withCredential) {
        EXPECT_EQ(requests.back().header("Authorization"), kGoodAuthorization);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Dispositions, URLSessionAuthDisposition,
    ::testing::Values(
        DispositionCase{"UseCredential", NSURLSessionAuthChallengeUseCredential, true, 200, 0, "welcome"},
        DispositionCase{"UseNoCredential", NSURLSessionAuthChallengeUseCredential, false, 401, 0, "denied"},
        DispositionCase{"DefaultHandling", NSURLSessionAuthChallengePerformDefaultHandling, false, 401, 0,
                        "denied"},
        DispositionCase{"RejectSpace", NSURLSessionAuthChallengeRejectProtectionSpace, false, 401, 0,
                        "denied"},
        DispositionCase{"Cancel", NSURLSessionAuthChallengeCancelAuthenticationChallenge, false, 0,
                        NSURLErrorCancelled, ""}),
    [](const auto& info) { return std::string(info.param.name); });

// Answers every challenge with a wrong password until it has failed twice, then cancels.
class StubbornDelegate : public RecordingDelegate {
public:
    void URLSession_task_didReceiveChallenge_completionHandler(
        const std::shared_ptr<NSURLSession>& session, const std::shared_ptr<NSURLSessionTask>& task,
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge,
        NSURLSessionChallengeCompletion completion) override {
        const bool giveUp = challenge->previousFailureCount() >= 2;
        challengeDisposition = giveUp ? NSURLSessionAuthChallengeCancelAuthenticationChallenge
                                      : NSURLSessionAuthChallengeUseCredential;
        credential = NSURLCredential::credentialWithUser("user", "wrong", NSURLCredentialPersistenceNone);
        RecordingDelegate::URLSession_task_didReceiveChallenge_completionHandler(session, task, challenge,
                                                                                 std::move(completion));
    }
};

TEST_F(URLSessionAuth, CountsFailedAttempts) {
    auto delegate = std::make_shared<StubbornDelegate>();
    DelegateSession session(delegate);
    session->dataTaskWithRequest(makeRequest(server.url("/private")))->resume();
    ASSERT_TRUE(delegate->waitForCompletion());
    EXPECT_EQ(delegate->eventsWithoutData(),
              (std::vector<std::string>{"challenge 0", "challenge 1", "challenge 2", "complete -999"}));
    EXPECT_EQ(server.requestCount(), 3u);
}

// Implements only the session-level challenge method.
class SessionLevelDelegate : public NSURLSessionDelegate {
public:
    std::atomic<int> challenges{0};
    void URLSession_didReceiveChallenge_completionHandler(
        const std::shared_ptr<NSURLSession>&, const std::shared_ptr<NSURLAuthenticationChallenge>&,
        NSURLSessionChallengeCompletion completion) override {
        ++challenges;
        completion(
            NSURLSessionAuthChallengeUseCredential,
            NSURLCredential::credentialWithUser("user", "secret", NSURLCredentialPersistenceForSession));
    }
};

TEST_F(URLSessionAuth, ASessionLevelDelegateAnswersTaskChallenges) {
    auto delegate = std::make_shared<SessionLevelDelegate>();
    DelegateSession session(delegate);
    CompletionRecorder result;
    session->dataTaskWithRequest(makeRequest(server.url("/private")), result.handler())->resume();
    ASSERT_TRUE(result.wait());
    EXPECT_EQ(delegate->challenges.load(), 1);
    EXPECT_EQ(statusOf(result.response()), 200);
    EXPECT_EQ(result.body(), "welcome");
}

TEST_F(URLSessionAuth, WithoutADelegateTheUnauthorizedResponseIsTheResult) {
    auto session =
        NSURLSession::sessionWithConfiguration(NSURLSessionConfiguration::defaultSessionConfiguration());
    CompletionRecorder result;
    session->dataTaskWithRequest(makeRequest(server.url("/private")), result.handler())->resume();
    ASSERT_TRUE(result.wait());
    EXPECT_EQ(statusOf(result.response()), 401);
    EXPECT_EQ(result.body(), "denied");
}

}  // namespace
