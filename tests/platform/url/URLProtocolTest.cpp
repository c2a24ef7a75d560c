// Protocol classes: how the loading system chooses one, and protocols that load through a session
// of their own as a host's shim does.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "platform/foundation/NSNumber.h"
#include "platform/objc/Runtime.h"
#include "platform/url/NSURLProtocol.h"
#include "platform/url/NSURLSession.h"
#include "tests/platform/url/UrlTestSupport.h"
#include "tests/support/LoopbackHttpServer.h"

namespace {

using namespace platform;
using namespace qlm_test;

// Answers with a canned body for any request, without a network.
class CannedProtocol : public NSURLProtocol {
    PLATFORM_OBJC_CLASS(CannedProtocol, NSURLProtocol)
public:
    static bool canInitWithRequest(const std::shared_ptr<NSURLRequest>& request) {
        if (!request || !request->URL()) return false;
        const auto& scheme = request->URL()->scheme();
        return scheme == "http" || scheme == "canned";
    }

    void startLoading() override {
        {
            std::lock_guard lock(threadsMutex());
            startThread() = std::this_thread::get_id();
        }
        auto response = NSHTTPURLResponse::initWithURL(request()->URL(), 200, "HTTP/1.1", nullptr);
        client()->URLProtocol_didReceiveResponse_cacheStoragePolicy(this, response,
                                                                    NSURLCacheStorageNotAllowed);
        client()->URLProtocol_didLoadData(
            this, NSData::dataWithString("canned:" + request()->URL()->absoluteString()));
        client()->URLProtocolDidFinishLoading(this);
    }

    static std::mutex& threadsMutex() {
        static std::mutex mutex;
        return mutex;
    }
    static std::thread::id& startThread() {  // guarded by threadsMutex()
        static std::thread::id id;
        return id;
    }
};

// Decides on tasks rather than requests: it takes tasks whose current request has a header.
class TaskDecidingProtocol : public NSURLProtocol {
    PLATFORM_OBJC_CLASS(TaskDecidingProtocol, NSURLProtocol)
public:
    static bool canInitWithRequest(const std::shared_ptr<NSURLRequest>&) { return false; }
    static bool canInitWithTask(const std::shared_ptr<NSURLSessionTask>& task) {
        return task->currentRequest()->valueForHTTPHeaderField("X-Route-To-Task").has_value();
    }
    void initWithTask(const std::shared_ptr<NSURLSessionTask>& task,
                      std::shared_ptr<NSCachedURLResponse> cached,
                      std::shared_ptr<NSURLProtocolClient> client) override {
        initialisedWithTask = true;
        NSURLProtocol::initWithTask(task, std::move(cached), std::move(client));
    }
    void startLoading() override {
        auto response = NSHTTPURLResponse::initWithURL(request()->URL(), 202, "HTTP/1.1", nullptr);
        client()->URLProtocol_didReceiveResponse_cacheStoragePolicy(this, response,
                                                                    NSURLCacheStorageNotAllowed);
        client()->URLProtocolDidFinishLoading(this);
    }
    static inline std::atomic<bool> initialisedWithTask{false};
};

class URLProtocolSelection : public ::testing::Test {
protected:
    void SetUp() override {
        server.route("GET", "/real",
                     [](const HttpRequest&) { return HttpResponse::text(200, "from the server"); });
        ASSERT_TRUE(server.start());
    }
    std::string load(const std::shared_ptr<NSURLSession>& session,
                     const std::shared_ptr<NSURLRequest>& request, long* status = nullptr) {
        CompletionRecorder result;
        session->dataTaskWithRequest(request, result.handler())->resume();
        EXPECT_TRUE(result.wait());
        if (status) *status = statusOf(result.response());
        return result.body();
    }

    LoopbackHttpServer server;
};

TEST_F(URLProtocolSelection, ARegisteredClassTakesRequestsItCanInit) {
    const Class canned = NSURLProtocol::registerSubclass<CannedProtocol>();
    auto before =
        NSURLSession::sessionWithConfiguration(NSURLSessionConfiguration::defaultSessionConfiguration());
    ASSERT_TRUE(NSURLProtocol::registerClass(canned));
    EXPECT_FALSE(NSURLProtocol::registerClass(NSURLSession::class_())) << "no protocol class";
    auto after =
        NSURLSession::sessionWithConfiguration(NSURLSessionConfiguration::defaultSessionConfiguration());

    EXPECT_EQ(load(after, makeRequest("canned://anything/x")), "canned:canned://anything/x");
    EXPECT_EQ(load(after, makeRequest(server.url("/real"))), "canned:" + server.url("/real"))
        << "a class registered before the configuration was made comes before the built-in one";
    EXPECT_EQ(load(before, makeRequest(server.url("/real"))), "from the server")
        << "an older configuration lists the built-in class first";
    EXPECT_EQ(load(before, makeRequest("canned://anything/y")), "canned:canned://anything/y")
        << "registered classes are tried after the configuration's";
    {
        std::lock_guard lock(CannedProtocol::threadsMutex());
        EXPECT_NE(CannedProtocol::startThread(), std::this_thread::get_id())
            << "loading runs on the loader thread";
    }
    NSURLProtocol::unregisterClass(canned);
    CompletionRecorder result;
    before->dataTaskWithURL(NSURL::URLWithString("canned://anything/z"), result.handler())->resume();
    ASSERT_TRUE(result.wait());
    EXPECT_EQ(result.errorCode(), NSURLErrorUnsupportedURL);
}

TEST_F(URLProtocolSelection, TheConfigurationsListComesFirst) {
    auto configuration = NSURLSessionConfiguration::defaultSessionConfiguration();
    auto classes = configuration->protocolClasses();
    ASSERT_TRUE(classes);
    ASSERT_FALSE(classes->empty());
    EXPECT_EQ(NSStringFromClass(classes->back()), "_NSURLHTTPProtocol");

    classes->insert(classes->begin(), NSURLProtocol::registerSubclass<CannedProtocol>());
    configuration->setProtocolClasses(classes);
    auto session = NSURLSession::sessionWithConfiguration(configuration);
    configuration->setProtocolClasses(std::nullopt);  // the session kept its own copy
    EXPECT_EQ(load(session, makeRequest(server.url("/real"))), "canned:" + server.url("/real"));
    EXPECT_EQ(server.requestCount(), 0u);
    EXPECT_EQ(session->configuration()->protocolClasses(), classes);
}

TEST_F(URLProtocolSelection, AClassDecidingOnTasksIsInitialisedWithTheTask) {
    auto configuration = NSURLSessionConfiguration::defaultSessionConfiguration();
    auto classes = *configuration->protocolClasses();
    classes.insert(classes.begin(), NSURLProtocol::registerSubclass<TaskDecidingProtocol>());
    configuration->setProtocolClasses(classes);
    auto session = NSURLSession::sessionWithConfiguration(configuration);

    auto routed = makeRequest(server.url("/real"));
    routed->setValue("yes", "X-Route-To-Task");
    long status = 0;
    load(session, routed, &status);
    EXPECT_EQ(status, 202);
    EXPECT_TRUE(TaskDecidingProtocol::initialisedWithTask.load());
    EXPECT_EQ(load(session, makeRequest(server.url("/real"))), "from the server");
}

// The class TheGetterCanBeExchangedThroughTheRuntime puts first.
class InjectedProtocol : public CannedProtocol {
    PLATFORM_OBJC_CLASS(InjectedProtocol, CannedProtocol)
};

TEST_F(URLProtocolSelection, TheGetterCanBeExchangedThroughTheRuntime) {
    using Classes = NSURLSessionConfiguration::ProtocolClasses;
    const Class injected = NSURLProtocol::registerSubclass<InjectedProtocol>();
    const SEL fakeName = sel_getUid("fakeProtocolClasses");
    // The replacement calls what is now under its own name: the original getter.
    IMP fake = imp_makeFunction<Classes>(
        std::function<Classes(NSObject*, SEL)>([injected, fakeName](NSObject* self, SEL) {
            Classes original = objc_msgSend<Classes>(self, fakeName);
            std::vector<Class> classes{injected};
            if (original) classes.insert(classes.end(), original->begin(), original->end());
            return Classes(classes);
        }));
    // Methods live for the process: a repeated run finds the one added before, which does the same.
    class_addMethod(NSURLSessionConfiguration::class_(), fakeName, fake);

    auto existing = NSURLSessionConfiguration::defaultSessionConfiguration();
    const Class concrete = object_getClass(existing.get());
    EXPECT_NE(concrete, NSURLSessionConfiguration::class_());
    EXPECT_TRUE(existing->isKindOfClass(NSURLSessionConfiguration::class_()));
    Method original = class_getInstanceMethod(concrete, sel_getUid("protocolClasses"));
    Method replacement = class_getInstanceMethod(NSURLSessionConfiguration::class_(), fakeName);
    ASSERT_NE(original, nullptr);
    ASSERT_NE(replacement, nullptr);
    const Classes plain = existing->protocolClasses();

    method_exchangeImplementations(original, replacement);
    auto fresh = NSURLSessionConfiguration::defaultSessionConfiguration();
    for (const auto& configuration : {existing, fresh}) {
        auto classes = configuration->protocolClasses();
        ASSERT_TRUE(classes);
        ASSERT_EQ(classes->size(), plain->size() + 1);
        EXPECT_EQ(classes->front(), injected);
    }
    auto session = NSURLSession::sessionWithConfiguration(fresh);
    EXPECT_EQ(load(session, makeRequest(server.url("/real"))), "canned:" + server.url("/real"))
        << "the loading system reads the list through the runtime";

    method_exchangeImplementations(original, replacement);
    EXPECT_EQ(existing->protocolClasses(), plain);
    EXPECT_EQ(load(session, makeRequest(server.url("/real"))), "from the server");
}

// ---- A shim that loads through a session of its own and passes everything on to its client.

constexpr const char* kForwardedKey = "ForwardingProtocol.forwarded";

// Stands in for the inner task's protocol when the outer client answers a challenge.
class ForwardingSender : public NSURLAuthenticationChallengeSender {
public:
    void hold(std::shared_ptr<NSURLAuthenticationChallenge> challenge,
              NSURLSessionChallengeCompletion completion) {
        std::lock_guard lock(mutex_);
        pending_[challenge.get()] = std::move(completion);
    }
    void useCredential(const std::shared_ptr<NSURLCredential>& credential,
                       const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) override {
        answer(challenge, NSURLSessionAuthChallengeUseCredential, credential);
    }
    void continueWithoutCredentialForAuthenticationChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) override {
        answer(challenge, NSURLSessionAuthChallengeUseCredential, nullptr);
    }
    void cancelAuthenticationChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) override {
        answer(challenge, NSURLSessionAuthChallengeCancelAuthenticationChallenge, nullptr);
    }
    void performDefaultHandlingForAuthenticationChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) override {
        answer(challenge, NSURLSessionAuthChallengePerformDefaultHandling, nullptr);
    }
    void rejectProtectionSpaceAndContinueWithChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) override {
        answer(challenge, NSURLSessionAuthChallengeRejectProtectionSpace, nullptr);
    }

private:
    void answer(const std::shared_ptr<NSURLAuthenticationChallenge>& challenge,
                NSURLSessionAuthChallengeDisposition disposition,
                std::shared_ptr<NSURLCredential> credential) {
        NSURLSessionChallengeCompletion completion;
        {
            std::lock_guard lock(mutex_);
            auto it = pending_.find(challenge.get());
            if (it == pending_.end()) return;
            completion = std::move(it->second);
            pending_.erase(it);
        }
        completion(disposition, std::move(credential));
    }

    std::mutex mutex_;
    std::map<const NSURLAuthenticationChallenge*, NSURLSessionChallengeCompletion>
        pending_;  // guarded by mutex_
};

class ForwardingProtocol : public NSURLProtocol, public NSURLSessionDataDelegate {
    PLATFORM_OBJC_CLASS(ForwardingProtocol, NSURLProtocol)
public:
    static inline std::atomic<int> alive{0};
    static inline std::atomic<int> started{0};

    ForwardingProtocol() { ++alive; }
    ~ForwardingProtocol() override { --alive; }

    static bool canInitWithRequest(const std::shared_ptr<NSURLRequest>& request) {
        return request && request->URL() && request->URL()->scheme() == "http" &&
               NSURLProtocol::propertyForKey(kForwardedKey, request) == nullptr;
    }

    void startLoading() override {
        ++started;
        auto marked = request()->mutableCopy();
        NSURLProtocol::setProperty(NSNumber::numberWithBool(true), kForwardedKey, marked);
        auto self = std::dynamic_pointer_cast<NSURLSessionDelegate>(shared_from_this());
        auto session = NSURLSession::sessionWithConfiguration(
            NSURLSessionConfiguration::defaultSessionConfiguration(), self, nullptr);
        {
            std::lock_guard lock(mutex_);
            session_ = session;
        }
        session->dataTaskWithRequest(marked)->resume();
    }

    void stopLoading() override {
        std::shared_ptr<NSURLSession> session;
        {
            std::lock_guard lock(mutex_);
            session = std::move(session_);
        }
        if (!session) return;
        session->getTasksWithCompletionHandler([session](auto dataTasks, auto, auto) {
            for (const auto& task : dataTasks) task->cancel();
            session->finishTasksAndInvalidate();
        });
    }

    void URLSession_task_willPerformHTTPRedirection_newRequest_completionHandler(
        const std::shared_ptr<NSURLSession>&, const std::shared_ptr<NSURLSessionTask>&,
        const std::shared_ptr<NSHTTPURLResponse>& response, const std::shared_ptr<NSURLRequest>& request,
        std::function<void(std::shared_ptr<NSURLRequest>)> completion) override {
        auto redirect = request->mutableCopy();
        NSURLProtocol::removePropertyForKey(kForwardedKey, redirect);
        client()->URLProtocol_wasRedirectedToRequest_redirectResponse(this, redirect, response);
        completion(nullptr);
    }

    void URLSession_task_didReceiveChallenge_completionHandler(
        const std::shared_ptr<NSURLSession>&, const std::shared_ptr<NSURLSessionTask>&,
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge,
        NSURLSessionChallengeCompletion completion) override {
        auto wrapped = NSURLAuthenticationChallenge::initWithAuthenticationChallenge(challenge, sender_);
        sender_->hold(wrapped, std::move(completion));
        client()->URLProtocol_didReceiveAuthenticationChallenge(this, wrapped);
    }

    void URLSession_dataTask_didReceiveResponse_completionHandler(
        const std::shared_ptr<NSURLSession>&, const std::shared_ptr<NSURLSessionDataTask>&,
        const std::shared_ptr<NSURLResponse>& response,
        std::function<void(NSURLSessionResponseDisposition)> completion) override {
        client()->URLProtocol_didReceiveResponse_cacheStoragePolicy(this, response,
                                                                    NSURLCacheStorageNotAllowed);
        completion(NSURLSessionResponseAllow);
    }

    void URLSession_dataTask_didReceiveData(const std::shared_ptr<NSURLSession>&,
                                            const std::shared_ptr<NSURLSessionDataTask>&,
                                            const std::shared_ptr<NSData>& data) override {
        client()->URLProtocol_didLoadData(this, data);
    }

    void URLSession_task_didCompleteWithError(const std::shared_ptr<NSURLSession>&,
                                              const std::shared_ptr<NSURLSessionTask>&,
                                              const std::shared_ptr<NSError>& error) override {
        if (error) {
            client()->URLProtocol_didFailWithError(this, error);
        } else {
            client()->URLProtocolDidFinishLoading(this);
        }
    }

private:
    std::mutex mutex_;
    std::shared_ptr<NSURLSession> session_;  // guarded by mutex_
    const std::shared_ptr<ForwardingSender> sender_ = std::make_shared<ForwardingSender>();
};

class URLProtocolShim : public ::testing::Test {
protected:
    void SetUp() override {
        server.route("GET", "/shim/start", [](const HttpRequest&) {
            return HttpResponse::text(302, "").withHeader("Location", "/shim/private");
        });
        server.route("GET", "/shim/private", [](const HttpRequest& request) {
            if (request.header("Authorization") == "Basic dXNlcjpzZWNyZXQ=")
                return HttpResponse::text(200, "through");
            return HttpResponse::text(401, "denied").withHeader("WWW-Authenticate", "Basic realm=\"shim\"");
        });
        ASSERT_TRUE(server.start());
        shim = NSURLProtocol::registerSubclass<ForwardingProtocol>();
        ASSERT_TRUE(NSURLProtocol::registerClass(shim));
    }
    void TearDown() override { NSURLProtocol::unregisterClass(shim); }

    LoopbackHttpServer server;
    Class shim = nullptr;
};

TEST_F(URLProtocolShim, ForwardsRedirectsAndChallengesThroughItsOwnSession) {
    const int startedBefore = ForwardingProtocol::started.load();
    auto delegate = std::make_shared<RecordingDelegate>();
    delegate->challengeDisposition = NSURLSessionAuthChallengeUseCredential;
    delegate->credential =
        NSURLCredential::credentialWithUser("user", "secret", NSURLCredentialPersistenceNone);
    {
        DelegateSession session(delegate);
        auto task = session->dataTaskWithRequest(makeRequest(server.url("/shim/start")));
        task->resume();
        ASSERT_TRUE(delegate->waitForCompletion());
        EXPECT_EQ(delegate->eventsWithoutData(),
                  (std::vector<std::string>{"redirect 302 -> " + server.url("/shim/private"), "challenge 0",
                                            "response 200", "complete"}));
        EXPECT_EQ(delegate->body(), "through");
        EXPECT_EQ(task->currentRequest()->URL()->absoluteString(), server.url("/shim/private"));
        EXPECT_EQ(NSURLProtocol::propertyForKey(kForwardedKey, task->currentRequest()), nullptr);
        EXPECT_EQ(ForwardingProtocol::started.load() - startedBefore, 2)
            << "a new instance for the redirected request";
        ASSERT_EQ(delegate->challenges().size(), 1u);
        EXPECT_EQ(delegate->challenges().front()->protectionSpace()->realm(), "shim");
    }
    // Each inner session was invalidated and let go of its shim; the outer one let go of its
    // delegate: nothing is left holding an instance.
    EXPECT_TRUE(waitUntil([] { return ForwardingProtocol::alive.load() == 0; }));
    EXPECT_EQ(server.requestCount(), 3u);
}

TEST(URLSessionInvalidation, TellsTheDelegateAndLetsItGo) {
    auto delegate = std::make_shared<RecordingDelegate>();
    auto session = NSURLSession::sessionWithConfiguration(
        NSURLSessionConfiguration::defaultSessionConfiguration(), delegate, nullptr);
    EXPECT_EQ(session->delegate(), delegate);
    session->finishTasksAndInvalidate();
    ASSERT_TRUE(delegate->waitFor("invalid"));
    ASSERT_TRUE(waitUntil([&] { return session->delegate() == nullptr; }));
    EXPECT_EQ(delegate.use_count(), 1) << "the session holds its delegate no longer";
    EXPECT_EQ(delegate->events(), std::vector<std::string>{"invalid"});
}

}  // namespace
