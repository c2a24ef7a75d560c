// Protocol classes: how the loading system chooses one, and a protocol that loads through a session
// of its own as a host's shim does.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>

#include "platform/foundation/NSNumber.h"
#include "platform/objc/Runtime.h"
#include "platform/url/NSURLProtocol.h"
#include "platform/url/NSURLSession.h"
#include "tests/platform/url/UrlTestSupport.h"

namespace {

using namespace platform;
using namespace qlm_test;

// Answers with a canned body for any request, without a network.
class CannedProtocol : public NSURLProtocol {
    PLATFORM_OBJC_CLASS(CannedProtocol, NSURLProtocol)
public:
    static bool canInitWithRequest(const std::shared_ptr<NSURLRequest>& request) {
        const auto scheme = request && request->URL() ? request->URL()->scheme() : std::nullopt;
        return scheme == "http" || scheme == "canned";
    }
    void startLoading() override {
        auto response = NSHTTPURLResponse::initWithURL(request()->URL(), 200, "HTTP/1.1", nullptr);
        client()->URLProtocol_didReceiveResponse_cacheStoragePolicy(this, response,
                                                                    NSURLCacheStorageNotAllowed);
        client()->URLProtocol_didLoadData(
            this, NSData::dataWithString("canned:" + request()->URL()->absoluteString()));
        client()->URLProtocolDidFinishLoading(this);
    }
};

// The class the runtime-replaced getter puts first.
class InjectedProtocol : public CannedProtocol {
    PLATFORM_OBJC_CLASS(InjectedProtocol, CannedProtocol)
};

using URLProtocolSelection = LoopbackTest;

TEST_F(URLProtocolSelection, ARegisteredClassTakesRequestsItCanInit) {
    const Class canned = NSURLProtocol::registerSubclass<CannedProtocol>();
    auto before = plainSession();
    ASSERT_TRUE(NSURLProtocol::registerClass(canned));
    EXPECT_FALSE(NSURLProtocol::registerClass(NSURLSession::class_())) << "no protocol class";
    auto after = plainSession();
    const std::string real = server.url("/next");

    EXPECT_EQ(load(after, makeRequest("canned://anything/x")).body(), "canned:canned://anything/x");
    EXPECT_EQ(load(after, makeRequest(real)).body(), "canned:" + real)
        << "a class registered before the configuration was made comes before the built-in one";
    EXPECT_EQ(load(before, makeRequest(real)).body(), "arrived by GET")
        << "an older configuration lists the built-in class first";
    EXPECT_EQ(load(before, makeRequest("canned://anything/y")).body(), "canned:canned://anything/y")
        << "registered classes are tried after the configuration's";
    NSURLProtocol::unregisterClass(canned);
    EXPECT_EQ(load(before, makeRequest("canned://anything/z")).errorCode(), NSURLErrorUnsupportedURL);
}

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
    EXPECT_NE(concrete, NSURLSessionConfiguration::class_()) << "the getter lives on a private subclass";
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
    EXPECT_EQ(load(session, makeRequest(server.url("/next"))).body(), "canned:" + server.url("/next"))
        << "the loading system reads the list through the runtime";

    method_exchangeImplementations(original, replacement);
    EXPECT_EQ(existing->protocolClasses(), plain);
    EXPECT_EQ(load(session, makeRequest(server.url("/next"))).body(), "arrived by GET");
}

// ---- A shim that loads through a session of its own and passes everything on to its client.

constexpr const char* kForwardedKey = "ForwardingProtocol.forwarded";

// Stands in for the inner task's protocol when the outer client answers a challenge; challenges of
// one task come one at a time.
class ForwardingSender : public NSURLAuthenticationChallengeSender {
public:
    void hold(NSURLSessionChallengeCompletion completion) {
        std::lock_guard lock(mutex_);
        pending_ = std::move(completion);
    }
    void useCredential(const std::shared_ptr<NSURLCredential>& credential,
                       const std::shared_ptr<NSURLAuthenticationChallenge>&) override {
        answer(NSURLSessionAuthChallengeUseCredential, credential);
    }
    void continueWithoutCredentialForAuthenticationChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>&) override {
        answer(NSURLSessionAuthChallengeUseCredential, nullptr);
    }
    void cancelAuthenticationChallenge(const std::shared_ptr<NSURLAuthenticationChallenge>&) override {
        answer(NSURLSessionAuthChallengeCancelAuthenticationChallenge, nullptr);
    }
    void performDefaultHandlingForAuthenticationChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>&) override {
        answer(NSURLSessionAuthChallengePerformDefaultHandling, nullptr);
    }
    void rejectProtectionSpaceAndContinueWithChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>&) override {
        answer(NSURLSessionAuthChallengeRejectProtectionSpace, nullptr);
    }

private:
    void answer(NSURLSessionAuthChallengeDisposition disposition,
                std::shared_ptr<NSURLCredential> credential) {
        NSURLSessionChallengeCompletion completion;
        {
            std::lock_guard lock(mutex_);
            completion = std::exchange(pending_, nullptr);
        }
        if (completion) completion(disposition, std::move(credential));
    }

    std::mutex mutex_;
    NSURLSessionChallengeCompletion pending_;  // guarded by mutex_
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
        auto session = NSURLSession::sessionWithConfiguration(
            NSURLSessionConfiguration::defaultSessionConfiguration(),
            std::dynamic_pointer_cast<NSURLSessionDelegate>(shared_from_this()), nullptr);
        {
            std::lock_guard lock(mutex_);
            session_ = session;
        }
        session->dataTaskWithRequest(marked)->resume();
    }
    // Cancels every task its session lists, then lets the session (and so itself) go.
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
        sender_->hold(std::move(completion));
        client()->URLProtocol_didReceiveAuthenticationChallenge(
            this, NSURLAuthenticationChallenge::initWithAuthenticationChallenge(challenge, sender_));
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

using URLProtocolShim = LoopbackTest;

TEST_F(URLProtocolShim, ForwardsRedirectsAndChallengesThroughItsOwnSessionThenFreesEverything) {
    const Class shim = NSURLProtocol::registerSubclass<ForwardingProtocol>();
    ASSERT_TRUE(NSURLProtocol::registerClass(shim));
    struct Unregister {
        Class shim;
        ~Unregister() { NSURLProtocol::unregisterClass(shim); }
    } unregister{shim};
    const int startedBefore = ForwardingProtocol::started.load();
    auto delegate = std::make_shared<RecordingDelegate>();
    delegate->challengeDisposition = NSURLSessionAuthChallengeUseCredential;
    delegate->credential =
        NSURLCredential::credentialWithUser("user", "secret", NSURLCredentialPersistenceNone);
    {
        DelegateSession session(delegate);
        auto task = session->dataTaskWithRequest(makeRequest(server.url("/to-private")));
        task->resume();
        ASSERT_TRUE(delegate->waitForCompletion());
        const DelegateRecord record = delegate->get();
        EXPECT_EQ(record.eventsWithoutData(),
                  (std::vector<std::string>{"redirect 302 -> " + server.url("/private"), "challenge 0",
                                            "response 200", "complete"}));
        EXPECT_EQ(record.body, "welcome");
        EXPECT_EQ(task->currentRequest()->URL()->absoluteString(), server.url("/private"));
        EXPECT_EQ(NSURLProtocol::propertyForKey(kForwardedKey, task->currentRequest()), nullptr);
        EXPECT_EQ(ForwardingProtocol::started.load() - startedBefore, 2)
            << "a new instance for the redirected request";
        ASSERT_EQ(record.challenges.size(), 1u);
        EXPECT_EQ(record.challenges.front()->protectionSpace()->realm(), "quill");
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
    session->finishTasksAndInvalidate();
    ASSERT_TRUE(waitUntil([&] { return session->delegate() == nullptr; }));
    EXPECT_EQ(delegate.use_count(), 1) << "the session holds its delegate no longer";
    EXPECT_EQ(delegate->get().events, std::vector<std::string>{"invalid"});
}

}  // namespace
