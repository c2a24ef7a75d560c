// Network capture: a host's session against a real loopback server, with the shim reporting to a
// recording sink; and once the library end to end.
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "capture/network/NetworkRequestInterceptor.h"
#include "capture/network/NetworkShim.h"
#include "capture/network/Request.h"
#include "capture/network/Response.h"
#include "engine/SDK.h"
#include "platform/foundation/NSDate.h"
#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSInputStream.h"
#include "platform/url/NSURLProtocol.h"
#include "platform/url/NSURLSession.h"
#include "platform/url/NSURLSessionConfiguration.h"
#include "platform/url/NSURLSessionDataDelegate.h"
#include "tests/engine/EngineTestSupport.h"
#include "tests/support/RecordingSink.h"
#include "wire/qm_network.pb.h"

using namespace quillmere;
using namespace platform;
using qlm_test::HttpRequest;
using qlm_test::HttpResponse;

namespace {

// Everything a host can tell about one exchange.
struct HostOutcome {
    long status = 0;  // 0: no HTTP response
    std::map<std::string, std::string> headers;
    std::string body;
    std::vector<std::string> redirects;
    int challenges = 0;
    long errorCode = 0;
};

// How the host answers what its session asks.
struct HostPolicy {
    NSURLSessionAuthChallengeDisposition challengeAnswer = NSURLSessionAuthChallengePerformDefaultHandling;
    std::shared_ptr<NSURLCredential> credential;
};

class HostDelegate final : public NSURLSessionDataDelegate {
public:
    explicit HostDelegate(HostPolicy policy) : policy_(std::move(policy)) {}

    void URLSession_dataTask_didReceiveResponse_completionHandler(
        const std::shared_ptr<NSURLSession>&, const std::shared_ptr<NSURLSessionDataTask>&,
        const std::shared_ptr<NSURLResponse>& response,
        std::function<void(NSURLSessionResponseDisposition)> completion) override {
        if (auto http = std::dynamic_pointer_cast<NSHTTPURLResponse>(response)) {
            std::lock_guard lock(mutex_);
            outcome_.status = http->statusCode();
            for (const auto& [key, value] : *http->allHeaderFields())
                outcome_.headers[NSStringValue(key).value_or("?")] = NSStringValue(value).value_or("?");
        }
        completion(NSURLSessionResponseAllow);
    }
    void URLSession_dataTask_didReceiveData(const std::shared_ptr<NSURLSession>&,
                                            const std::shared_ptr<NSURLSessionDataTask>&,
                                            const std::shared_ptr<NSData>& data) override {
        std::lock_guard lock(mutex_);
        outcome_.body.append(data->view());
    }
    void URLSession_task_willPerformHTTPRedirection_newRequest_completionHandler(
        const std::shared_ptr<NSURLSession>&, const std::shared_ptr<NSURLSessionTask>&,
        const std::shared_ptr<NSHTTPURLResponse>&, const std::shared_ptr<NSURLRequest>& request,
        std::function<void(std::shared_ptr<NSURLRequest>)> completion) override {
        {
            std::lock_guard lock(mutex_);
            outcome_.redirects.push_back(request->URL()->absoluteString());
        }
        completion(request);
    }
    void URLSession_didReceiveChallenge_completionHandler(
        const std::shared_ptr<NSURLSession>&, const std::shared_ptr<NSURLAuthenticationChallenge>&,
        NSURLSessionChallengeCompletion completion) override {
        {
            std::lock_guard lock(mutex_);
            ++outcome_.challenges;
        }
        completion(policy_.challengeAnswer, policy_.credential);
    }
    void URLSession_task_didCompleteWithError(const std::shared_ptr<NSURLSession>&,
                                              const std::shared_ptr<NSURLSessionTask>&,
                                              const std::shared_ptr<NSError>& error) override {
        std::lock_guard lock(mutex_);
        outcome_.errorCode = error ? error->code() : 0;
        done_ = true;
    }

    std::optional<HostOutcome> outcome() const {
        std::lock_guard lock(mutex_);
        return done_ ? std::optional(outcome_) : std::nullopt;
    }

private:
    const HostPolicy policy_;
    mutable std::mutex mutex_;
    HostOutcome outcome_;  // guarded by mutex_
    bool done_ = false;    // guarded by mutex_
};

// Loads `request` through a session of the host's own and waits for the end. With `cancelAt`,
// cancels the task once that server has received `count` requests in all.
HostOutcome fetch(const std::shared_ptr<NSURLRequest>& request, const HostPolicy& policy = {},
                  const qlm_test::LoopbackHttpServer* cancelAt = nullptr, std::size_t count = 0) {
    auto delegate = std::make_shared<HostDelegate>(policy);
    auto session = NSURLSession::sessionWithConfiguration(
        NSURLSessionConfiguration::defaultSessionConfiguration(), delegate, nullptr);
    auto task = session->dataTaskWithRequest(request);
    task->resume();
    if (cancelAt) {
        EXPECT_TRUE(cancelAt->waitForRequests(count));
        task->cancel();
    }
    EXPECT_TRUE(
        qlm_test::waitUntil([&] { return delegate->outcome().has_value(); }, std::chrono::seconds(15)));
    session->finishTasksAndInvalidate();
    return delegate->outcome().value_or(HostOutcome{});
}

// With a header field set, so that the platform gives the request a header dictionary.
std::shared_ptr<NSMutableURLRequest> requestTo(const std::string& url, const std::string& method = "GET") {
    auto request = NSMutableURLRequest::requestWithURL(NSURL::URLWithString(url));
    request->setHTTPMethod(method);
    request->setValue("application/json", "Accept");
    return request;
}

struct NetworkEvents {
    std::vector<qm::network::RequestEvent> requests;
    std::vector<qm::network::ResponseEvent> responses;

    const qm::network::RequestEvent* requestFor(const std::string& url) const {
        for (const auto& request : requests)
            if (request.url() == url) return &request;
        return nullptr;
    }
    const qm::network::ResponseEvent* responseTo(const std::string& reqId) const {
        for (const auto& response : responses)
            if (response.reqid() == reqId) return &response;
        return nullptr;
    }
};

NetworkEvents networkEvents(const qlm_test::RecordingSink& sink) {
    return {sink.messages<qm::network::RequestEvent>(EventType::requestEvent),
            sink.messages<qm::network::ResponseEvent>(EventType::responseEvent)};
}

NetworkEvents networkEvents(const qlm_test::IngestServer& server) {
    NetworkEvents events;
    for (const auto& event : server.events()) {
        if (event.type() == "qm.network.RequestEvent")
            events.requests.push_back(qlm_test::innerMessage<qm::network::RequestEvent>(event));
        if (event.type() == "qm.network.ResponseEvent")
            events.responses.push_back(qlm_test::innerMessage<qm::network::ResponseEvent>(event));
    }
    return events;
}

template <class Base, class Object>
class FunctionSanitizer final : public Base {
public:
    using Function = std::function<std::shared_ptr<Object>(std::shared_ptr<Object>)>;
    explicit FunctionSanitizer(Function function) : function_(std::move(function)) {}
    std::shared_ptr<Object> sanitize(std::shared_ptr<Object> object) override { return function_(object); }

private:
    const Function function_;
};

class NetworkCapture : public ::testing::Test {
protected:
    void SetUp() override {
        app_.route("GET", "/json", [](const HttpRequest&) {
            return HttpResponse::text(200, R"({"a":"b/c"})", "application/json").withHeader("X-Trace", "t-1");
        });
        app_.route("POST", "/echo", [](const HttpRequest& request) {
            return HttpResponse::text(201, request.body, request.header("Content-Type").value_or("none"))
                .withHeader("X-Secret", request.header("X-Secret").value_or("none"));
        });
        app_.route("GET", "/redirect", [](const HttpRequest& request) {
            return HttpResponse::text(302, "moved").withHeader("Location", "/json?" + request.query);
        });
        app_.route("GET", "/missing",
                   [](const HttpRequest&) { return HttpResponse::text(404, "no such thing"); });
        app_.route("GET", "/auth", [](const HttpRequest& request) {
            if (request.header("Authorization") == "Basic YWRhOnNlY3JldA==")
                return HttpResponse::text(200, "hi");
            return HttpResponse::text(401, "who?").withHeader("WWW-Authenticate", "Basic realm=\"test\"");
        });
        app_.route("GET", "/binary",
                   [](const HttpRequest&) { return HttpResponse::text(200, std::string("\xff\xfe\0b", 4)); });
        app_.route("GET", "/hangup", [](const HttpRequest&) {
            HttpResponse response;
            response.closeWithoutReply = true;
            return response;
        });
        app_.route("GET", "/slow", [](const HttpRequest&) {
            auto response = HttpResponse::text(200, "late");
            response.delayBeforeReply = std::chrono::seconds(60);  // cut short when the server stops
            return response;
        });
        ASSERT_TRUE(app_.start());
    }

    void TearDown() override {
        if (capturing_) stopCapture();
    }

    void startCapture() {
        interceptor_->start(sink_);
        capturing_ = true;
    }

    // Once the sink holds this many events (capture work ends after the host hears of it).
    void stopCapture(std::size_t requests = 0, std::size_t responses = 0) {
        EXPECT_TRUE(sink_->waitFor(EventType::requestEvent, requests));
        EXPECT_TRUE(sink_->waitFor(EventType::responseEvent, responses));
        interceptor_->stop();
        capturing_ = false;
    }

    std::string url(const std::string& path, const std::string& tag) const {
        return app_.url(path + "?case=" + tag);
    }

    qlm_test::LoopbackHttpServer app_;
    const std::shared_ptr<qlm_test::RecordingSink> sink_ = std::make_shared<qlm_test::RecordingSink>();
    const std::shared_ptr<NetworkRequestInterceptor> interceptor_ = std::make_shared<NetworkRequestInterceptor>();
    bool capturing_ = false;
};

template <class Event>
std::string arson(const Event& event) {
    return event.has_body() ? event.body().arson() : "";
}

enum class Body { none, data, stream };
enum class Host { plain, credential, defaultHandling, cancelChallenge, cancelTask };

// One exchange, and what its own pair of events says (arson "": no body; nullptr: not checked, as
// whether a followed redirect's body arrived before the host's follow stopped it is a race).
struct Exchange {
    const char* tag;
    const char* path;
    Body body;
    const char* content;
    Host host;
    int status;
    const char* requestArson;
    const char* responseArson;
};

const Exchange kExchanges[] = {
    {"get-json", "/json", Body::none, "", Host::plain, 200, "", R"(["{\"a\":\"b\/c\"}"])"},
    {"post-json", "/echo", Body::data, R"({"k":"v/w"})", Host::plain, 201, R"(["{\"k\":\"v\/w\"}"])",
     R"(["{\"k\":\"v\/w\"}"])"},
    {"post-stream", "/echo", Body::stream, "a/b", Host::plain, 201, R"(["a\/b"])", R"(["a\/b"])"},
    {"post-empty", "/echo", Body::data, "", Host::plain, 201, R"([""])", R"([""])"},
    {"redirect", "/redirect", Body::none, "", Host::plain, 302, "", nullptr},
    {"not-found", "/missing", Body::none, "", Host::plain, 404, "", R"(["no such thing"])"},
    {"auth-credential", "/auth", Body::none, "", Host::credential, 200, "", R"(["hi"])"},
    {"auth-default", "/auth", Body::none, "", Host::defaultHandling, 401, "", R"(["who?"])"},
    {"auth-cancel", "/auth", Body::none, "", Host::cancelChallenge, 0, "", ""},
    {"binary", "/binary", Body::none, "", Host::plain, 200, "", ""},
    {"hangup", "/hangup", Body::none, "", Host::plain, 0, "", ""},
    {"cancelled", "/slow", Body::none, "", Host::cancelTask, 0, "", ""},
};

TEST_F(NetworkCapture, EachExchangeIsReportedAsOnePair) {
    const auto run = [&](const Exchange& exchange) {
        auto request = requestTo(url(exchange.path, exchange.tag));
        if (exchange.body != Body::none) {
            request->setHTTPMethod("POST");
            const auto content = NSData::dataWithString(exchange.content);
            if (exchange.body == Body::data) request->setHTTPBody(content);
            if (exchange.body == Body::stream)
                request->setHTTPBodyStream(NSInputStream::inputStreamWithData(content));
        }
        HostPolicy policy;
        if (exchange.host == Host::credential) {
            policy.challengeAnswer = NSURLSessionAuthChallengeUseCredential;
            policy.credential =
                NSURLCredential::credentialWithUser("ada", "secret", NSURLCredentialPersistenceNone);
        }
        if (exchange.host == Host::cancelChallenge)
            policy.challengeAnswer = NSURLSessionAuthChallengeCancelAuthenticationChallenge;
        const bool cancel = exchange.host == Host::cancelTask;
        return fetch(request, policy, cancel ? &app_ : nullptr, app_.requestCount() + 1);
    };
    // What the host and the server see with capture on, next to without, is the comparison's
    // (tests/noninterference); here, what capture reports of each exchange.
    startCapture();
    for (const auto& exchange : kExchanges) run(exchange);
    // The followed redirect's target is a request of its own, reported once.
    const std::size_t reported = std::size(kExchanges) + 1;
    stopCapture(reported, reported);

    const auto events = networkEvents(*sink_);
    ASSERT_EQ(events.requests.size(), reported);
    ASSERT_EQ(events.responses.size(), reported);
    std::set<std::string> ids;
    for (const auto& request : events.requests) {
        EXPECT_TRUE(request.reqid().starts_with("ios-")) << request.reqid();
        EXPECT_TRUE(ids.insert(request.reqid()).second) << "twice: " << request.reqid();
    }
    for (const auto& exchange : kExchanges) {
        SCOPED_TRACE(exchange.tag);
        const auto* request = events.requestFor(url(exchange.path, exchange.tag));
        ASSERT_TRUE(request);
        EXPECT_EQ(request->headers().at("Accept"), "application/json");
        EXPECT_EQ(arson(*request), exchange.requestArson);
        const auto* response = events.responseTo(request->reqid());
        ASSERT_TRUE(response);
        EXPECT_EQ(response->method(), request->method());
        EXPECT_EQ(response->status(), static_cast<uint32_t>(exchange.status));
        if (exchange.responseArson) {
            EXPECT_EQ(arson(*response), exchange.responseArson);
        }
        EXPECT_EQ(response->headers().empty(), exchange.status == 0);
    }
    const auto* followed = events.requestFor(url("/json", "redirect"));
    ASSERT_TRUE(followed);
    const auto* answer = events.responseTo(followed->reqid());
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status(), 200u);
}

TEST_F(NetworkCapture, MarkedDeclinedAndHeaderlessRequestsAreDeliveredUnreported) {
    sink_->setCaptures([](const NSURLRequest& request) {
        return request.URL()->absoluteString().find("declined") == std::string::npos;
    });
    startCapture();
    auto marked = requestTo(url("/json", "marked"));
    NSURLProtocol::setProperty(NSDate::date(), NetworkShim::kStartTimeKey, marked);
    EXPECT_EQ(fetch(marked).status, 200);
    const auto bare = NSMutableURLRequest::requestWithURL(NSURL::URLWithString(url("/json", "")));
    EXPECT_EQ(fetch(bare).status, 200);
    EXPECT_EQ(fetch(requestTo(url("/json", "declined"))).status, 200);
    EXPECT_EQ(fetch(requestTo(url("/json", "seen"))).status, 200);
    stopCapture(1, 1);

    const auto events = networkEvents(*sink_);
    ASSERT_EQ(events.requests.size(), 1u);
    EXPECT_EQ(events.requests[0].url(), url("/json", "seen"));
    EXPECT_EQ(events.responses.size(), 1u);
}

TEST_F(NetworkCapture, SanitizersChangeOrDropWhatIsReportedButNeverTheTraffic) {
    using RequestFn = FunctionSanitizer<RequestSanitizer, Request>;
    using ResponseFn = FunctionSanitizer<ResponseSanitizer, Response>;
    const auto blankRequest = [](std::shared_ptr<Request> request) {
        request->setUrl(std::nullopt);
        request->setHeaders(std::nullopt);
        request->setBody(NSData::dataWithString("redacted"));
        return request;
    };
    const auto blankResponse = [](std::shared_ptr<Response> response) {
        response->setUrl(std::nullopt);
        response->setHeaders(std::nullopt);
        response->setBody(nullptr);
        return response;
    };
    const auto drop = [](auto) { return nullptr; };
    const std::vector<std::tuple<std::string, RequestFn::Function, ResponseFn::Function>> cases{
        {"change", blankRequest, blankResponse},
        {"drop-request", drop, nullptr},
        {"drop-response", nullptr, drop}};
    startCapture();
    for (const auto& [tag, onRequest, onResponse] : cases) {
        sink_->setRequestSanitizer(onRequest ? std::make_shared<RequestFn>(onRequest) : nullptr);
        sink_->setResponseSanitizer(onResponse ? std::make_shared<ResponseFn>(onResponse) : nullptr);
        auto request = requestTo(url("/echo", tag), "POST");
        request->setValue("s3cret", "X-Secret");
        request->setHTTPBody(NSData::dataWithString("card=4111"));
        auto outcome = fetch(request);
        EXPECT_EQ(std::tie(outcome.body, outcome.headers["X-Secret"]), std::tie("card=4111", "s3cret"))
            << tag;
    }
    stopCapture(2, 1);

    // The changed exchange, and the one whose response was dropped; nothing of the other.
    const auto events = networkEvents(*sink_);
    ASSERT_EQ(events.requests.size(), 2u);
    ASSERT_EQ(events.responses.size(), 1u);
    const auto& changed = events.requests[0];
    EXPECT_TRUE(changed.url().empty() && changed.headers().empty());
    EXPECT_EQ(arson(changed), R"(["redacted"])");
    const auto* response = events.responseTo(changed.reqid());
    ASSERT_TRUE(response);
    EXPECT_TRUE(response->url().empty() && response->headers().empty() && !response->has_body());
    EXPECT_EQ(events.requests[1].url(), url("/echo", "drop-response"));
    EXPECT_EQ(events.requests[1].headers().at("X-Secret"), "s3cret");
}

TEST_F(NetworkCapture, ARedirectIsOnePairWhateverTheSanitizerDoesWithItsTarget) {
    using RequestFn = FunctionSanitizer<RequestSanitizer, Request>;
    sink_->setRequestSanitizer(std::make_shared<RequestFn>([](std::shared_ptr<Request> request) {
        return request->url()->find("/json") == std::string::npos ? request : nullptr;
    }));
    startCapture();
    EXPECT_EQ(fetch(requestTo(url("/redirect", "dropped-target"))).status, 200);
    stopCapture(1, 1);

    const auto events = networkEvents(*sink_);
    ASSERT_EQ(events.requests.size(), 1u);
    ASSERT_EQ(events.responses.size(), 1u);
    EXPECT_EQ(events.responses[0].reqid(), events.requests[0].reqid());
    EXPECT_EQ(events.responses[0].status(), 302u);
}

TEST_F(NetworkCapture, SanitizersMayKeepTheirObjectsAndChangeThemAfterReturning) {
    using RequestFn = FunctionSanitizer<RequestSanitizer, Request>;
    using ResponseFn = FunctionSanitizer<ResponseSanitizer, Response>;
    std::mutex mutex;
    std::shared_ptr<Request> keptRequest;    // guarded by mutex
    std::shared_ptr<Response> keptResponse;  // guarded by mutex
    sink_->setRequestSanitizer(std::make_shared<RequestFn>([&](std::shared_ptr<Request> request) {
        request->setUrl("as returned");
        std::lock_guard lock(mutex);
        return keptRequest = request;
    }));
    sink_->setResponseSanitizer(std::make_shared<ResponseFn>([&](std::shared_ptr<Response> response) {
        response->setBody(NSData::dataWithString("as returned"));
        std::lock_guard lock(mutex);
        return keptResponse = response;
    }));
    startCapture();
    EXPECT_EQ(fetch(requestTo(url("/json", "kept"))).status, 200);
    stopCapture(1, 1);
    // Handed over, not yet built: the sink builds when the test reads the events.
    {
        std::lock_guard lock(mutex);
        keptRequest->setUrl("changed later");
        keptRequest->setBody(NSData::dataWithString("changed later"));
        keptResponse->setBody(NSData::dataWithString("changed later"));
        keptResponse->setHeaders(std::nullopt);
    }

    const auto events = networkEvents(*sink_);
    ASSERT_EQ(events.requests.size(), 1u);
    ASSERT_EQ(events.responses.size(), 1u);
    EXPECT_EQ(events.requests[0].url(), "as returned");
    EXPECT_FALSE(events.requests[0].has_body());
    EXPECT_EQ(arson(events.responses[0]), R"(["as returned"])");
    EXPECT_EQ(events.responses[0].headers().count("X-Trace"), 1u);
}

std::vector<Class> protocolClasses(const std::shared_ptr<NSURLSessionConfiguration>& configuration =
                                       NSURLSessionConfiguration::defaultSessionConfiguration()) {
    return configuration->protocolClasses().value_or(std::vector<Class>{NSObject::class_()});
}

TEST_F(NetworkCapture, ProtocolClassesListTheShimFirstOnceWhileRunningAndThePlatformsListAfter) {
    const Class shim = NetworkShim::protocolClass();
    const auto platformList = protocolClasses();
    auto withShim = platformList;
    withShim.insert(withShim.begin(), shim);

    startCapture();
    EXPECT_EQ(protocolClasses(), withShim);
    EXPECT_EQ(protocolClasses(), withShim) << "asked twice";
    auto hosts = NSURLSessionConfiguration::defaultSessionConfiguration();
    hosts->setProtocolClasses(std::nullopt);
    EXPECT_EQ(protocolClasses(hosts), std::vector<Class>{});
    hosts->setProtocolClasses(std::vector<Class>{platformList[0], shim});
    EXPECT_EQ(protocolClasses(hosts), (std::vector<Class>{shim, platformList[0]}));
    stopCapture();
    EXPECT_EQ(protocolClasses(), platformList);
}

// The library as a host runs it: an exchange reaches the ingest server as one pair. Network capture
// turned off while running stays installed through shutdown; the next start must not undo it, and
// its shutdown must.
TEST_F(NetworkCapture, WithTheLibraryRunningAnExchangeReachesTheServerAndShutdownReadsTheFlag) {
    const auto platformList = protocolClasses();
    qlm_test::IngestServer ingest;
    const auto configuration = qlm_test::configurationFor(ingest);
    const auto run = [&](const std::function<void()> whileRunning) {
        ASSERT_TRUE(SDK::initialize(configuration));
        const auto core = SDK::currentCore();
        whileRunning();
        qlm_test::shutDownAndSettle(*core);
    };
    run([&] { EXPECT_EQ(fetch(requestTo(url("/json", "library"))).status, 200); });
    const auto events = networkEvents(ingest);
    ASSERT_EQ(events.requests.size(), 1u);
    ASSERT_EQ(events.responses.size(), 1u);
    EXPECT_EQ(events.requests[0].url(), url("/json", "library"));
    EXPECT_EQ(events.responses[0].reqid(), events.requests[0].reqid());
    EXPECT_EQ(protocolClasses(), platformList);

    run([&] { configuration->setNetworkCaptureEnabled(false); });
    EXPECT_NE(protocolClasses(), platformList);
    configuration->setNetworkCaptureEnabled(true);
    run([] {});
    EXPECT_EQ(protocolClasses(), platformList);
}

}  // namespace
