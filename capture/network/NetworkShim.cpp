#include "capture/network/NetworkShim.h"

#include <exception>

#include "capture/network/AuthenticationChallengeSender.h"
#include "capture/network/NetworkEvents.h"
#include "capture/network/Request.h"
#include "capture/network/Response.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSNumber.h"
#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSInputStream.h"
#include "platform/url/NSURLSessionConfiguration.h"
#include "platform/url/URLError.h"

namespace quillmere {

using platform::NSURLRequest;

namespace {

// One buffer of the pieces' bytes in order: the body as the event reports it.
std::shared_ptr<platform::NSData> joined(const std::vector<std::shared_ptr<platform::NSData>>& pieces) {
    std::size_t length = 0;
    for (const auto& piece : pieces) length += piece->length();
    std::vector<uint8_t> bytes;
    bytes.reserve(length);
    for (const auto& piece : pieces) bytes.insert(bytes.end(), piece->bytes(), piece->bytes() + piece->length());
    return std::make_shared<platform::NSData>(std::move(bytes));
}

// Never destroyed: shims of the loading system's threads may ask while the process exits.
struct SinkSlot {
    std::mutex mutex;
    std::weak_ptr<NetworkEventSink> sink;  // guarded by mutex
};

SinkSlot& sinkSlot() {
    static auto* const slot = new SinkSlot();
    return *slot;
}

std::shared_ptr<NetworkEventSink> currentSink() {
    auto& slot = sinkSlot();
    std::lock_guard lock(slot.mutex);
    return slot.sink.lock();
}

}  // namespace

platform::Class NetworkShim::protocolClass() {
    return platform::NSURLProtocol::registerSubclass<NetworkShim>();
}

void NetworkShim::reportTo(std::weak_ptr<NetworkEventSink> sink) {
    auto& slot = sinkSlot();
    std::lock_guard lock(slot.mutex);
    slot.sink.swap(sink);
}

void NetworkShim::stopReportingTo(const std::weak_ptr<NetworkEventSink>& current) {
    auto& slot = sinkSlot();
    std::weak_ptr<NetworkEventSink> released;
    std::lock_guard lock(slot.mutex);
    // The same owner, whether or not it is still alive: a later session's sink stays.
    if (!slot.sink.owner_before(current) && !current.owner_before(slot.sink)) slot.sink.swap(released);
}

bool NetworkShim::canInitWithRequest(const std::shared_ptr<NSURLRequest>& request) {
    try {
        if (!request || platform::NSURLProtocol::propertyForKey(kStartTimeKey, request)) return false;
        const auto& url = request->URL();
        // "https" begins with "http" too.
        if (!url || !url->absoluteString().starts_with("http")) return false;
        const auto sink = currentSink();
        return sink && sink->shouldCaptureRequest(*request);
    } catch (const std::exception&) {
        // Declined, the request goes its usual way.
        return false;
    }
}

bool NetworkShim::canInitWithTask(const std::shared_ptr<platform::NSURLSessionTask>& task) {
    const auto request = task ? task->currentRequest() : nullptr;
    return request && canInitWithRequest(request);
}

std::shared_ptr<NSURLRequest> NetworkShim::canonicalRequestForRequest(
    const std::shared_ptr<NSURLRequest>& request) {
    return request;
}

std::shared_ptr<platform::NSURLSession> NetworkShim::session() {
    std::lock_guard lock(sessionMutex_);
    if (!session_) {
        auto self = std::dynamic_pointer_cast<NetworkShim>(shared_from_this());
        session_ = platform::NSURLSession::sessionWithConfiguration(
            platform::NSURLSessionConfiguration::defaultSessionConfiguration(), std::move(self), nullptr);
    }
    return session_;
}

void NetworkShim::startLoading() {
    const auto original = request();
    if (!original) {
        // The loading system always gives a request; without one there is nothing to send.
        if (const auto client = this->client())
            client->URLProtocol_didFailWithError(
                this, platform::NSURLErrorWithCode(platform::NSURLErrorBadURL, nullptr));
        return;
    }
    auto outgoing = original->mutableCopy();
    // Marked whether or not it is reported: the mark is what keeps the copy from coming back here.
    platform::NSURLProtocol::setProperty(platform::NSDate::date(), kStartTimeKey, outgoing);
    reportRequest(*original, outgoing);
    session()->dataTaskWithRequest(outgoing)->resume();
}

void NetworkShim::reportRequest(const NSURLRequest& request,
                                const std::shared_ptr<platform::NSMutableURLRequest>& outgoing) noexcept {
    try {
        const auto sink = currentSink();
        if (!sink) return;
        const int64_t reqID = sink->nextRequestID();
        auto captured = requestFrom(request, reqID);
        if (!captured) return;
        if (!request.HTTPBody() && request.HTTPBodyStream() && captured->body()) {
            // Reading the body spent the stream the copy shares; the copy sends what was read, as
            // a stream still, so it goes on the wire framed as it would have been.
            outgoing->setHTTPBodyStream(platform::NSInputStream::inputStreamWithData(captured->body()));
        }
        const auto ownBody = captured->body();
        if (const auto sanitizer = sink->requestSanitizer()) {
            captured = sanitizer->sanitize(std::move(captured));
            if (!captured) return;
        }
        platform::NSURLProtocol::setProperty(platform::NSNumber::numberWithLongLong(reqID), kReqIDKey,
                                             outgoing);
        // The body's text form is built on the sink's thread: this thread drives every transfer.
        // What goes there is a copy, as the sanitizer may have kept its object to change later.
        sink->addEventBuiltLater(EventType::requestEvent, [captured = captured->detachedCopy(ownBody)] {
            return makeRequestEvent(*captured);
        });
    } catch (...) {
        // The request goes out unreported.
    }
}

void NetworkShim::stopLoading() {
    std::shared_ptr<platform::NSURLSession> session;
    {
        std::lock_guard lock(sessionMutex_);
        session = session_;
    }
    // Never started: no task runs, and no session is made just to find none.
    if (!session) return;
    session->getTasksWithCompletionHandler([session](auto dataTasks, auto, auto) {
        for (const auto& task : dataTasks) task->cancel();
        session->finishTasksAndInvalidate();
    });
}

void NetworkShim::URLSession_dataTask_didReceiveResponse_completionHandler(
    const std::shared_ptr<platform::NSURLSession>&, const std::shared_ptr<platform::NSURLSessionDataTask>&,
    const std::shared_ptr<platform::NSURLResponse>& response,
    std::function<void(platform::NSURLSessionResponseDisposition)> completion) {
    if (const auto client = this->client())
        client->URLProtocol_didReceiveResponse_cacheStoragePolicy(this, response,
                                                                  platform::NSURLCacheStorageAllowed);
    response_ = response;
    // A later response on the same task starts the body afresh.
    responsePieces_.clear();
    responseBodyKept_ = true;
    completion(platform::NSURLSessionResponseAllow);
}

void NetworkShim::URLSession_dataTask_didReceiveData(const std::shared_ptr<platform::NSURLSession>&,
                                                     const std::shared_ptr<platform::NSURLSessionDataTask>&,
                                                     const std::shared_ptr<platform::NSData>& data) {
    // The same piece, not a copy, and before capture spends any time on it.
    if (const auto client = this->client()) client->URLProtocol_didLoadData(this, data);
    if (responseBodyKept_ && data) {
        try {
            // Kept as it is, not copied: the piece is immutable and the host's is the same.
            responsePieces_.push_back(data);
        } catch (const std::exception&) {
            // The capture of this body is lost; its delivery is not.
            responseBodyKept_ = false;
            responsePieces_.clear();
        }
    }
}

void NetworkShim::URLSession_task_didCompleteWithError(
    const std::shared_ptr<platform::NSURLSession>& session,
    const std::shared_ptr<platform::NSURLSessionTask>& task,
    const std::shared_ptr<platform::NSError>& error) {
    const auto end = platform::NSDate::date();
    // The host hears of the end first; the capture of the response waits for nobody.
    if (const auto client = this->client()) {
        if (error) {
            client->URLProtocol_didFailWithError(this, error);
        } else {
            client->URLProtocolDidFinishLoading(this);
        }
    }
    if (task) reportResponse(*task, error, *end);
    // The session's one task is over: invalidated, it lets go of this shim, so nothing of a
    // finished request stays.
    if (session) session->finishTasksAndInvalidate();
}

void NetworkShim::reportResponse(const platform::NSURLSessionTask& task,
                                 const std::shared_ptr<platform::NSError>& error,
                                 const platform::NSDate& end) noexcept {
    try {
        const auto original = task.originalRequest();
        if (!original) return;
        const auto start = platform::objc_cast<platform::NSDate>(
            platform::NSURLProtocol::propertyForKey(kStartTimeKey, original));
        if (!start) return;
        const auto number = platform::objc_cast<platform::NSNumber>(
            platform::NSURLProtocol::propertyForKey(kReqIDKey, original));
        if (!number) return;
        const auto sink = currentSink();
        if (!sink) return;

        std::shared_ptr<platform::NSHTTPURLResponse> httpResponse;
        bool hasBody = false;
        if (!error) {
            httpResponse = std::dynamic_pointer_cast<platform::NSHTTPURLResponse>(response_);
            hasBody = responseBodyKept_;
        } else if (redirectResponse_) {
            // Stopped after it told of a redirect (the host followed it), or failed while the
            // refused redirect's body came: either way this request's answer was the redirect.
            httpResponse = redirectResponse_;
        }
        auto pieces = std::move(responsePieces_);
        responsePieces_.clear();
        auto captured = responseFrom(httpResponse, *original, nullptr, number->longLongValue());
        if (!captured) return;
        const double elapsed = end.timeIntervalSinceDate(*start);
        if (const auto sanitizer = sink->responseSanitizer()) {
            // The sanitizer reads the body, so it is joined now; the event is built from a copy
            // the sanitizer can't reach.
            const auto ownBody = hasBody ? joined(pieces) : nullptr;
            captured->setBody(ownBody);
            captured = sanitizer->sanitize(std::move(captured));
            if (!captured) return;
            captured = captured->detachedCopy(ownBody);
            hasBody = false;
            pieces.clear();
        }
        // Otherwise nobody reads the body before its event is built: the pieces are joined then,
        // at the sink's pace, rather than here, where the host is still to hear of the end.
        sink->addEventBuiltLater(EventType::responseEvent, [captured = std::move(captured),
                                                            pieces = std::move(pieces), hasBody, elapsed] {
            if (hasBody) captured->setBody(joined(pieces));
            return makeResponseEvent(*captured, elapsed);
        });
    } catch (...) {
        // The response goes unreported; the host still hears of the end.
    }
}

void NetworkShim::URLSession_task_willPerformHTTPRedirection_newRequest_completionHandler(
    const std::shared_ptr<platform::NSURLSession>&, const std::shared_ptr<platform::NSURLSessionTask>&,
    const std::shared_ptr<platform::NSHTTPURLResponse>& response,
    const std::shared_ptr<NSURLRequest>& request,
    std::function<void(std::shared_ptr<NSURLRequest>)> completion) {
    std::shared_ptr<NSURLRequest> next;
    if (request) {
        // Without either key the new request is a request of its own wherever it is taken next,
        // reported under a number of its own.
        auto unmarked = request->mutableCopy();
        platform::NSURLProtocol::removePropertyForKey(kStartTimeKey, unmarked);
        platform::NSURLProtocol::removePropertyForKey(kReqIDKey, unmarked);
        next = std::move(unmarked);
    }
    redirectResponse_ = response;
    if (const auto client = this->client())
        client->URLProtocol_wasRedirectedToRequest_redirectResponse(this, next, response);
    // The host decides, not this session, which never follows: a host that follows stops this shim
    // and loads the new request once; for one that refuses, the redirect's own response and body
    // come on here and go to it as they would have come without the library.
    completion(nullptr);
}

void NetworkShim::URLSession_didReceiveChallenge_completionHandler(
    const std::shared_ptr<platform::NSURLSession>&,
    const std::shared_ptr<platform::NSURLAuthenticationChallenge>& challenge,
    platform::NSURLSessionChallengeCompletion completion) {
    auto sender = AuthenticationChallengeSender::make(std::move(completion));
    const auto forwarded =
        platform::NSURLAuthenticationChallenge::initWithAuthenticationChallenge(challenge, std::move(sender));
    if (const auto client = this->client())
        client->URLProtocol_didReceiveAuthenticationChallenge(this, forwarded);
}

void NetworkShim::URLSessionDidFinishEventsForBackgroundURLSession(
    const std::shared_ptr<platform::NSURLSession>&) {
    if (const auto client = this->client()) client->URLProtocolDidFinishLoading(this);
}

}  // namespace quillmere
