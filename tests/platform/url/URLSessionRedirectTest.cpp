// Redirects: the delegate decides, the task follows with a new request or reports the 3xx.
#include <gtest/gtest.h>

#include <string>

#include "platform/url/NSURLSession.h"
#include "platform/url/URLError.h"
#include "tests/platform/url/UrlTestSupport.h"
#include "tests/support/LoopbackHttpServer.h"

namespace {

using namespace platform;
using namespace qlm_test;

class URLSessionRedirect : public ::testing::Test {
protected:
    void SetUp() override {
        server.route("*", "/start", [](const HttpRequest&) {
            return HttpResponse::text(302, "moved").withHeader("Location", "next?from=start");
        });
        server.route("*", "/next", [](const HttpRequest& request) {
            return HttpResponse::text(200, "arrived by " + request.method + " with '" + request.body + "'");
        });
        ASSERT_TRUE(server.start());
    }

    LoopbackHttpServer server;
};

TEST_F(URLSessionRedirect, FollowsWhenTheDelegateAgrees) {
    auto delegate = std::make_shared<RecordingDelegate>();
    DelegateSession session(delegate);
    auto task = session->dataTaskWithRequest(makeRequest(server.url("/start")));
    task->resume();
    ASSERT_TRUE(delegate->waitForCompletion());

    EXPECT_EQ(delegate->eventsWithoutData(),
              (std::vector<std::string>{"redirect 302 -> " + server.url("/next?from=start"), "response 200",
                                        "complete"}));
    EXPECT_EQ(delegate->body(), "arrived by GET with ''") << "the 3xx body is not delivered";
    EXPECT_EQ(task->originalRequest()->URL()->absoluteString(), server.url("/start"));
    EXPECT_EQ(task->currentRequest()->URL()->absoluteString(), server.url("/next?from=start"));
    EXPECT_EQ(statusOf(task->response()), 200);
    EXPECT_EQ(server.requestCount(), 2u);
}

TEST_F(URLSessionRedirect, ReportsTheRedirectResponseWhenTheDelegateRefuses) {
    auto delegate = std::make_shared<RecordingDelegate>();
    delegate->redirects = RecordingDelegate::Redirects::refuse;
    DelegateSession session(delegate);
    auto task = session->dataTaskWithRequest(makeRequest(server.url("/start")));
    task->resume();
    ASSERT_TRUE(delegate->waitForCompletion());

    EXPECT_EQ(delegate->eventsWithoutData(),
              (std::vector<std::string>{"redirect 302 -> " + server.url("/next?from=start"), "response 302",
                                        "complete"}));
    EXPECT_EQ(delegate->body(), "moved");
    EXPECT_EQ(task->currentRequest()->URL()->absoluteString(), server.url("/start"));
    EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(URLSessionRedirect, FollowsByDefaultForATaskWithACompletionHandler) {
    auto session =
        NSURLSession::sessionWithConfiguration(NSURLSessionConfiguration::defaultSessionConfiguration());
    CompletionRecorder result;
    session->dataTaskWithURL(NSURL::URLWithString(server.url("/start")), result.handler())->resume();
    ASSERT_TRUE(result.wait());
    EXPECT_EQ(statusOf(result.response()), 200);
    EXPECT_EQ(result.body(), "arrived by GET with ''");
}

struct MethodCase {
    const char* name;
    const char* method;
    int status;
    const char* expectedMethod;
    bool keepsBody;
};

void PrintTo(const MethodCase& c, std::ostream* os) {
    *os << c.name;
}

class URLSessionRedirectMethod : public URLSessionRedirect,
                                 public ::testing::WithParamInterface<MethodCase> {};

TEST_P(URLSessionRedirectMethod, ChangesTheMethodAsHTTPSays) {
    const auto& c = GetParam();
    server.route("*", "/status", [status = c.status](const HttpRequest&) {
        return HttpResponse::text(status, "").withHeader("Location", "/next");
    });
    auto request = makeRequest(server.url("/status"));
    request->setHTTPMethod(c.method);
    request->setHTTPBody(NSData::dataWithString("payload"));
    auto session =
        NSURLSession::sessionWithConfiguration(NSURLSessionConfiguration::defaultSessionConfiguration());
    CompletionRecorder result;
    session->dataTaskWithRequest(request, result.handler())->resume();
    ASSERT_TRUE(result.wait());
    EXPECT_EQ(result.errorCode(), 0);
    ASSERT_EQ(server.requestCount(), 2u);
    const HttpRequest second = server.requests().back();
    EXPECT_EQ(second.method, c.expectedMethod);
    EXPECT_EQ(second.body, c.keepsBody ? "payload" : "");
}

INSTANTIATE_TEST_SUITE_P(Statuses, URLSessionRedirectMethod,
                         ::testing::Values(MethodCase{"PostSeeOther", "POST", 303, "GET", false},
                                           MethodCase{"PostFound", "POST", 302, "GET", false},
                                           MethodCase{"PostMovedPermanently", "POST", 301, "GET", false},
                                           MethodCase{"PostTemporary", "POST", 307, "POST", true},
                                           MethodCase{"PutPermanent", "PUT", 308, "PUT", true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(URLSessionRedirect, GivesUpOnEndlessRedirects) {
    server.route("GET", "/loop", [](const HttpRequest&) {
        return HttpResponse::text(302, "again").withHeader("Location", "/loop");
    });
    auto session =
        NSURLSession::sessionWithConfiguration(NSURLSessionConfiguration::defaultSessionConfiguration());
    CompletionRecorder result;
    session->dataTaskWithURL(NSURL::URLWithString(server.url("/loop")), result.handler())->resume();
    ASSERT_TRUE(result.wait());
    EXPECT_EQ(result.errorCode(), NSURLErrorHTTPTooManyRedirects);
    EXPECT_EQ(result.data(), nullptr);
    EXPECT_EQ(server.requestCount(), 17u) << "16 redirects followed, the 17th refused";
}

}  // namespace
