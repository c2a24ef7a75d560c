// Loading over HTTP against a real server on loopback: requests as sent, responses as received.
#include <gtest/gtest.h>

#include <string>

#include "platform/foundation/NSString.h"
#include "platform/url/NSURLSession.h"
#include "tests/platform/url/UrlTestSupport.h"
#include "tests/support/LoopbackHttpServer.h"

namespace {

using namespace platform;
using namespace qlm_test;

class URLSessionLoading : public ::testing::Test {
protected:
    void TearDown() override { gate->open(); }

    void SetUp() override {
        server.route("*", "/echo", [](const HttpRequest& request) {
            return HttpResponse::text(request.method == "POST" ? 201 : 200, request.body)
                .withHeader("X-Method", request.method);
        });
        ASSERT_TRUE(server.start());
    }

    LoopbackHttpServer server;
    std::shared_ptr<Gate> gate = std::make_shared<Gate>();
};

enum class Body { none, data, stream, upload };

struct ExchangeCase {
    const char* name;
    const char* method;
    Body body;
    long expectedStatus;
};

void PrintTo(const ExchangeCase& c, std::ostream* os) {
    *os << c.name;
}

class URLSessionExchange : public URLSessionLoading, public ::testing::WithParamInterface<ExchangeCase> {};

TEST_P(URLSessionExchange, SendsTheRequestAndReportsTheResponse) {
    const auto& c = GetParam();
    const std::string payload = c.body == Body::none ? "" : std::string("{\"events\":[1,2,3]}");
    auto request = makeRequest(server.url("/echo?x=1"), 60.0);
    request->setHTTPMethod(c.method);
    request->setValue("application/json", "Content-Type");
    if (c.body == Body::data) request->setHTTPBody(NSData::dataWithString(payload));
    if (c.body == Body::stream)
        request->setHTTPBodyStream(NSInputStream::inputStreamWithData(NSData::dataWithString(payload)));

    auto session =
        NSURLSession::sessionWithConfiguration(NSURLSessionConfiguration::defaultSessionConfiguration());
    CompletionRecorder result;
    std::shared_ptr<NSURLSessionTask> task =
        c.body == Body::upload ? std::shared_ptr<NSURLSessionTask>(session->uploadTaskWithRequest(
                                     request, NSData::dataWithString(payload), result.handler()))
                               : session->dataTaskWithRequest(request, result.handler());
    EXPECT_EQ(task->state(), NSURLSessionTaskStateSuspended);
    task->resume();
    ASSERT_TRUE(result.wait());

    EXPECT_EQ(result.errorCode(), 0);
    EXPECT_EQ(statusOf(result.response()), c.expectedStatus);
    auto http = std::dynamic_pointer_cast<NSHTTPURLResponse>(result.response());
    ASSERT_TRUE(http);
    EXPECT_EQ(http->valueForHTTPHeaderField("x-method"), c.method);
    EXPECT_EQ(http->MIMEType(), "text/plain");
    EXPECT_EQ(http->URL()->absoluteString(), server.url("/echo?x=1"));
    ASSERT_TRUE(result.data());
    EXPECT_EQ(result.body(), payload);
    EXPECT_EQ(task->state(), NSURLSessionTaskStateCompleted);
    EXPECT_EQ(task->response(), result.response());

    ASSERT_EQ(server.requestCount(), 1u);
    const HttpRequest sent = server.requests().front();
    EXPECT_EQ(sent.method, c.method);
    EXPECT_EQ(sent.target, "/echo?x=1");
    EXPECT_EQ(sent.body, payload);
    EXPECT_EQ(sent.header("Content-Type"), "application/json");
    EXPECT_EQ(sent.header("Expect"), std::nullopt) << "the body goes without waiting for 100 Continue";
    EXPECT_EQ(sent.chunked, c.body == Body::stream) << "a stream of unknown length goes chunked";
}

INSTANTIATE_TEST_SUITE_P(Methods, URLSessionExchange,
                         ::testing::Values(ExchangeCase{"Get", "GET", Body::none, 200},
                                           ExchangeCase{"PostData", "POST", Body::data, 201},
                                           ExchangeCase{"PostStream", "POST", Body::stream, 201},
                                           ExchangeCase{"Upload", "POST", Body::upload, 201},
                                           ExchangeCase{"PutData", "PUT", Body::data, 200},
                                           ExchangeCase{"Delete", "DELETE", Body::none, 200}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(URLSessionLoading, DeliversTheBodyInPiecesAsTheyArrive) {
    auto delegate = std::make_shared<RecordingDelegate>();
    server.route("GET", "/pieces", [delegate](const HttpRequest&) {
        HttpResponse response = HttpResponse::text(200, "first-");
        response.chunks.push_back("second-");
        response.chunks.push_back("third");
        // Each piece goes out only after the client has seen the one before.
        response.beforeChunk = [delegate](std::size_t piece) {
            delegate->waitForPieces(static_cast<int>(piece));
        };
        return response;
    });
    DelegateSession session(delegate);
    auto task = session->dataTaskWithRequest(makeRequest(server.url("/pieces")));
    task->resume();
    ASSERT_TRUE(delegate->waitForCompletion());

    EXPECT_EQ(delegate->body(), "first-second-third");
    EXPECT_GE(delegate->pieces(), 3);
    EXPECT_EQ(delegate->eventsWithoutData(), (std::vector<std::string>{"response 200", "complete"}));
    EXPECT_EQ(delegate->events().back(), "complete");
    EXPECT_FALSE(delegate->overlapped());
}

TEST_F(URLSessionLoading, JoinsRepeatedResponseFieldsAndAnswersHead) {
    server.route("*", "/fields", [](const HttpRequest&) {
        return HttpResponse::text(200, "0123456789").withHeader("X-Part", "a").withHeader("x-part", "b");
    });
    auto session =
        NSURLSession::sessionWithConfiguration(NSURLSessionConfiguration::defaultSessionConfiguration());
    for (const char* method : {"GET", "HEAD"}) {
        auto request = makeRequest(server.url("/fields"));
        request->setHTTPMethod(method);
        CompletionRecorder result;
        session->dataTaskWithRequest(request, result.handler())->resume();
        ASSERT_TRUE(result.wait()) << method;
        auto http = std::dynamic_pointer_cast<NSHTTPURLResponse>(result.response());
        ASSERT_TRUE(http) << method;
        EXPECT_EQ(http->valueForHTTPHeaderField("X-PART"), "a, b") << method;
        EXPECT_EQ(http->expectedContentLength(), 10) << method;
        EXPECT_EQ(result.body(), std::string(method) == "HEAD" ? "" : "0123456789") << method;
    }
}

TEST_F(URLSessionLoading, AddsTheConfigurationsFieldsUnlessTheRequestSetsThem) {
    auto configuration = NSURLSessionConfiguration::defaultSessionConfiguration();
    configuration->setHTTPAdditionalHeaders(
        NSDictionary::dictionaryWithStrings({{"X-Client", "quill"}, {"X-Version", "default"}}));
    auto session = NSURLSession::sessionWithConfiguration(configuration);
    auto request = makeRequest(server.url("/echo"));
    request->setValue("mine", "x-version");
    CompletionRecorder result;
    session->dataTaskWithRequest(request, result.handler())->resume();
    ASSERT_TRUE(result.wait());
    ASSERT_EQ(server.requestCount(), 1u);
    const HttpRequest sent = server.requests().front();
    EXPECT_EQ(sent.header("X-Client"), "quill");
    EXPECT_EQ(sent.header("X-Version"), "mine");
}

TEST_F(URLSessionLoading, CancelsWhenTheDelegateRefusesTheResponse) {
    auto delegate = std::make_shared<RecordingDelegate>();
    delegate->responseDisposition = NSURLSessionResponseCancel;
    DelegateSession session(delegate);
    auto task = session->dataTaskWithRequest(makeRequest(server.url("/echo")));
    task->resume();
    ASSERT_TRUE(delegate->waitForCompletion());
    EXPECT_EQ(delegate->events(), (std::vector<std::string>{"response 200", "complete -999"}));
    EXPECT_EQ(task->error()->code(), NSURLErrorCancelled);
}

TEST_F(URLSessionLoading, ListsRunningTasksOnTheDelegateQueue) {
    server.route("GET", "/held", [gate = gate](const HttpRequest&) {
        gate->wait();
        return HttpResponse::text(200, "late");
    });
    auto session =
        NSURLSession::sessionWithConfiguration(NSURLSessionConfiguration::defaultSessionConfiguration());
    CompletionRecorder held;
    auto task = session->dataTaskWithRequest(makeRequest(server.url("/held")), held.handler());
    task->resume();
    auto upload = session->uploadTaskWithRequest(makeRequest(server.url("/held")),
                                                 NSData::dataWithString("x"), nullptr);
    ASSERT_TRUE(server.waitForRequests(1));

    std::mutex listedMutex;
    std::vector<std::shared_ptr<NSURLSessionDataTask>> listed;     // guarded by listedMutex
    std::vector<std::shared_ptr<NSURLSessionUploadTask>> uploads;  // guarded by listedMutex
    bool answered = false;                                         // guarded by listedMutex
    session->getTasksWithCompletionHandler([&](auto dataTasks, auto uploadTasks, auto) {
        // The shim's way of stopping: cancel every data task the session lists.
        for (const auto& t : dataTasks) t->cancel();
        std::lock_guard lock(listedMutex);
        listed = dataTasks;
        uploads = uploadTasks;
        answered = true;
    });
    ASSERT_TRUE(waitUntil([&] {
        std::lock_guard lock(listedMutex);
        return answered;
    }));
    {
        std::lock_guard lock(listedMutex);
        ASSERT_EQ(listed.size(), 1u);
        EXPECT_EQ(listed.front(), task);
        EXPECT_TRUE(uploads.empty()) << "a task not yet resumed is not listed";
    }
    ASSERT_TRUE(held.wait());
    EXPECT_EQ(held.errorCode(), NSURLErrorCancelled);
}

}  // namespace
