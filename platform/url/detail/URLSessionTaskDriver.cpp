#include "platform/url/detail/URLSessionTaskDriver.h"

#include <atomic>
#include <vector>

#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSURLSession.h"
#include "platform/url/NSURLSessionDataTask.h"
#include "platform/url/URLError.h"
#include "platform/url/detail/URLLoaderThread.h"
#include "platform/url/detail/URLProtocolTaskClient.h"

namespace platform::detail {
namespace {

// Hands an instance that is done with to the loader thread for stopLoading, and lets it go there.
void stopOnLoaderThread(std::shared_ptr<NSURLProtocol> protocol) {
    if (!protocol) return;
    URLLoaderThread::shared().perform([protocol = std::move(protocol)]() mutable {
        protocol->stopLoading();
        protocol.reset();
    });
}

template <class Signature>
struct OnceCall;

template <class... A>
struct OnceCall<void(A...)> {
    std::shared_ptr<std::atomic<bool>> called;
    std::function<void(A...)> body;
    void operator()(A... args) const {
        if (!called->exchange(true)) body(std::move(args)...);
    }
};

// Wraps a completion handler so that only its first call counts.
template <class Signature>
std::function<Signature> once(std::function<Signature> body) {
    return OnceCall<Signature>{std::make_shared<std::atomic<bool>>(false), std::move(body)};
}

}  // namespace

URLSessionTaskDriver::URLSessionTaskDriver(const std::shared_ptr<NSURLSessionTask>& task,
                                           std::shared_ptr<NSURLSession> session,
                                           std::shared_ptr<NSURLRequest> request, unsigned long identifier,
                                           NSURLSessionCompletionHandler completion)
    : task_(task),
      session_(std::move(session)),
      originalRequest_(request),
      identifier_(identifier),
      currentRequest_(std::move(request)),
      completion_(std::move(completion)) {
    if (completion_) received_ = NSMutableData::data();
}

std::shared_ptr<NSURLRequest> URLSessionTaskDriver::currentRequest() const {
    std::lock_guard lock(mutex_);
    return currentRequest_;
}

std::shared_ptr<NSURLResponse> URLSessionTaskDriver::response() const {
    std::lock_guard lock(mutex_);
    return response_;
}

NSURLSessionTaskState URLSessionTaskDriver::state() const {
    std::lock_guard lock(mutex_);
    return state_;
}

std::shared_ptr<NSError> URLSessionTaskDriver::error() const {
    std::lock_guard lock(mutex_);
    return error_;
}

bool URLSessionTaskDriver::isCurrent(uint64_t generation) const {
    std::lock_guard lock(mutex_);
    return !completed_ && generation == generation_;
}

void URLSessionTaskDriver::resume() {
    auto task = task_.lock();
    if (!task) return;
    uint64_t generation;
    {
        std::lock_guard lock(mutex_);
        if (state_ != NSURLSessionTaskStateSuspended || completed_) return;
        state_ = NSURLSessionTaskStateRunning;
        generation = generation_;
    }
    if (!session_->taskDidResume(task)) {
        // The session was invalidated before this task began.
        cancel();
        return;
    }
    startLoading(generation);
}

void URLSessionTaskDriver::cancel() {
    std::shared_ptr<NSURLProtocol> protocol;
    {
        std::lock_guard lock(mutex_);
        if (completed_ || state_ == NSURLSessionTaskStateCanceling) return;
        state_ = NSURLSessionTaskStateCanceling;
        ++generation_;
        protocol = std::move(protocol_);
    }
    stopOnLoaderThread(std::move(protocol));
    auto self = shared_from_this();
    session_->delegateQueue()->addOperationWithBlock([self] {
        const auto request = self->currentRequest();
        self->complete(NSURLErrorWithCode(NSURLErrorCancelled, request ? request->URL() : nullptr));
    });
}

void URLSessionTaskDriver::startLoading(uint64_t generation) {
    auto self = shared_from_this();
    URLLoaderThread::shared().perform([self, generation] { self->selectAndStartProtocol(generation); });
}

void URLSessionTaskDriver::failFromLoader(uint64_t generation, long code) {
    const auto request = currentRequest();
    URLProtocolEvent event{URLProtocolEvent::Kind::fail};
    event.error = NSURLErrorWithCode(code, request ? request->URL() : nullptr);
    post(generation, std::move(event));
}

void URLSessionTaskDriver::selectAndStartProtocol(uint64_t generation) {
    auto task = task_.lock();
    if (!task || !isCurrent(generation)) return;
    const auto request = currentRequest();
    try {
        std::vector<Class> candidates =
            session_->configurationObject()->protocolClasses().value_or(std::vector<Class>{});
        for (Class cls : NSURLProtocol::registeredClasses()) candidates.push_back(cls);

        Class chosen = nullptr;
        for (Class cls : candidates) {
            if (NSURLProtocol::classCanInitWithTask(cls, task)) {
                chosen = cls;
                break;
            }
        }
        if (chosen == nullptr) return failFromLoader(generation, NSURLErrorUnsupportedURL);

        auto canonical = NSURLProtocol::classCanonicalRequestForRequest(chosen, request);
        auto client = std::make_shared<URLProtocolTaskClient>(weak_from_this(), generation);
        auto protocol = NSURLProtocol::classMakeInstance(chosen, task, canonical, nullptr, client);
        if (!protocol) return failFromLoader(generation, NSURLErrorUnsupportedURL);
        {
            std::lock_guard lock(mutex_);
            // Cancelled or replaced meanwhile: the instance never starts, so it needs no stop.
            if (completed_ || generation != generation_) return;
            protocol_ = protocol;
        }
        protocol->startLoading();
    } catch (...) {
        // Protocol classes are host code; what they throw ends the task instead.
        failFromLoader(generation, NSURLErrorUnknown);
    }
}

void URLSessionTaskDriver::post(uint64_t generation, URLProtocolEvent event) {
    auto self = shared_from_this();
    session_->delegateQueue()->addOperationWithBlock([self, generation, event = std::move(event)]() mutable {
        self->handle(generation, std::move(event));
    });
}

void URLSessionTaskDriver::handle(uint64_t generation, URLProtocolEvent event) {
    if (!isCurrent(generation)) return;
    if (holding_) {
        held_.push_back(std::move(event));
        return;
    }
    process(generation, std::move(event));
}

void URLSessionTaskDriver::replayHeld(uint64_t generation) {
    while (!holding_ && !held_.empty() && isCurrent(generation)) {
        URLProtocolEvent event = std::move(held_.front());
        held_.pop_front();
        process(generation, std::move(event));
    }
}

void URLSessionTaskDriver::process(uint64_t generation, URLProtocolEvent event) {
    using Kind = URLProtocolEvent::Kind;
    auto task = std::dynamic_pointer_cast<NSURLSessionDataTask>(task_.lock());
    switch (event.kind) {
        case Kind::redirect:
            if (redirects_ >= kMaximumRedirects) {
                complete(NSURLErrorWithCode(NSURLErrorHTTPTooManyRedirects,
                                            event.request ? event.request->URL() : nullptr));
                return;
            }
            askAboutRedirect(generation, event);
            return;
        case Kind::response: {
            {
                std::lock_guard lock(mutex_);
                response_ = event.response;
            }
            if (!completion_) askAboutResponse(generation, event.response);
            return;
        }
        case Kind::data:
            if (!event.data) return;
            if (completion_) {
                received_->appendData(*event.data);
            } else if (auto delegate =
                           std::dynamic_pointer_cast<NSURLSessionDataDelegate>(session_->delegate())) {
                if (task) delegate->URLSession_dataTask_didReceiveData(session_, task, event.data);
            }
            return;
        case Kind::finish:
            complete(nullptr);
            return;
        case Kind::fail:
            complete(event.error ? event.error : NSURLErrorWithCode(NSURLErrorUnknown, nullptr));
            return;
        case Kind::challenge:
            if (event.challenge) askAboutChallenge(event.challenge);
            return;
        case Kind::cancelChallenge:
            // The platform's delegate API has no call for a withdrawn challenge; an answer given later
            // is ignored by the sender.
            return;
    }
}

void URLSessionTaskDriver::askAboutResponse(uint64_t generation,
                                            const std::shared_ptr<NSURLResponse>& response) {
    auto delegate = std::dynamic_pointer_cast<NSURLSessionDataDelegate>(session_->delegate());
    auto task = std::dynamic_pointer_cast<NSURLSessionDataTask>(task_.lock());
    if (!delegate || !task) return;
    holding_ = true;
    auto self = shared_from_this();
    delegate->URLSession_dataTask_didReceiveResponse_completionHandler(
        session_, task, response,
        once<void(NSURLSessionResponseDisposition)>(
            [self, generation](NSURLSessionResponseDisposition disposition) {
                self->session_->delegateQueue()->addOperationWithBlock(
                    [self, generation, disposition] { self->responseDecided(generation, disposition); });
            }));
}

void URLSessionTaskDriver::responseDecided(uint64_t generation, NSURLSessionResponseDisposition disposition) {
    if (!isCurrent(generation)) return;
    if (disposition != NSURLSessionResponseAllow) {
        cancel();
        return;
    }
    holding_ = false;
    replayHeld(generation);
}

void URLSessionTaskDriver::askAboutRedirect(uint64_t generation, const URLProtocolEvent& event) {
    holding_ = true;
    auto self = shared_from_this();
    auto decide =
        once<void(std::shared_ptr<NSURLRequest>)>([self, generation](std::shared_ptr<NSURLRequest> request) {
            self->session_->delegateQueue()->addOperationWithBlock(
                [self, generation, request] { self->redirectDecided(generation, request); });
        });
    auto delegate = std::dynamic_pointer_cast<NSURLSessionTaskDelegate>(session_->delegate());
    auto task = task_.lock();
    auto response = std::dynamic_pointer_cast<NSHTTPURLResponse>(event.response);
    if (delegate && task) {
        delegate->URLSession_task_willPerformHTTPRedirection_newRequest_completionHandler(
            session_, task, response, event.request, decide);
    } else {
        decide(event.request);
    }
}

void URLSessionTaskDriver::redirectDecided(uint64_t generation, std::shared_ptr<NSURLRequest> request) {
    if (!isCurrent(generation)) return;
    if (!request) {
        // Refused: what the instance reported after the redirect (the 3xx response and its body)
        // becomes the task's result.
        holding_ = false;
        replayHeld(generation);
        return;
    }
    ++redirects_;
    held_.clear();
    holding_ = false;
    std::shared_ptr<NSURLProtocol> previous;
    uint64_t next;
    {
        std::lock_guard lock(mutex_);
        next = ++generation_;
        previous = std::move(protocol_);
        currentRequest_ = request->copy();
    }
    stopOnLoaderThread(std::move(previous));
    startLoading(next);
}

void URLSessionTaskDriver::askAboutChallenge(const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) {
    // The answer goes to the challenge's sender, which may be the protocol that raised it or an
    // object standing in for another protocol.
    auto answer = once<void(NSURLSessionAuthChallengeDisposition, std::shared_ptr<NSURLCredential>)>(
        [challenge, self = shared_from_this()](NSURLSessionAuthChallengeDisposition disposition,
                                               std::shared_ptr<NSURLCredential> credential) {
            const auto& sender = challenge->sender();
            if (!sender) {
                if (disposition == NSURLSessionAuthChallengeCancelAuthenticationChallenge) self->cancel();
                return;
            }
            switch (disposition) {
                case NSURLSessionAuthChallengeUseCredential:
                    if (credential) {
                        sender->useCredential(credential, challenge);
                    } else {
                        sender->continueWithoutCredentialForAuthenticationChallenge(challenge);
                    }
                    break;
                case NSURLSessionAuthChallengePerformDefaultHandling:
                    sender->performDefaultHandlingForAuthenticationChallenge(challenge);
                    break;
                case NSURLSessionAuthChallengeCancelAuthenticationChallenge:
                    sender->cancelAuthenticationChallenge(challenge);
                    break;
                case NSURLSessionAuthChallengeRejectProtectionSpace:
                    sender->rejectProtectionSpaceAndContinueWithChallenge(challenge);
                    break;
            }
        });
    auto delegate = session_->delegate();
    auto task = task_.lock();
    if (auto taskDelegate = std::dynamic_pointer_cast<NSURLSessionTaskDelegate>(delegate);
        taskDelegate && task) {
        taskDelegate->URLSession_task_didReceiveChallenge_completionHandler(session_, task, challenge,
                                                                            answer);
    } else if (delegate) {
        delegate->URLSession_didReceiveChallenge_completionHandler(session_, challenge, answer);
    } else {
        answer(NSURLSessionAuthChallengePerformDefaultHandling, nullptr);
    }
}

void URLSessionTaskDriver::complete(std::shared_ptr<NSError> error) {
    std::shared_ptr<NSURLProtocol> protocol;
    std::shared_ptr<NSURLResponse> response;
    {
        std::lock_guard lock(mutex_);
        if (completed_) return;
        completed_ = true;
        ++generation_;
        state_ = NSURLSessionTaskStateCompleted;
        error_ = error;
        response = response_;
        protocol = std::move(protocol_);
    }
    stopOnLoaderThread(std::move(protocol));
    held_.clear();
    holding_ = false;

    auto task = task_.lock();
    if (completion_) {
        auto handler = std::move(completion_);
        completion_ = nullptr;
        std::shared_ptr<NSData> body = error ? nullptr : std::move(received_);
        received_.reset();
        handler(std::move(body), std::move(response), std::move(error));
    } else if (auto delegate = std::dynamic_pointer_cast<NSURLSessionTaskDelegate>(session_->delegate());
               delegate && task) {
        delegate->URLSession_task_didCompleteWithError(session_, task, error);
    }
    if (task) session_->taskDidComplete(task);
}

}  // namespace platform::detail
