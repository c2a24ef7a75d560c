#include "platform/url/detail/URLHTTPProtocol.h"

#include <optional>

#include "platform/foundation/NSString.h"
#include "platform/url/NSMutableURLRequest.h"
#include "platform/url/NSURLSession.h"
#include "platform/url/URLError.h"
#include "platform/url/detail/CaseInsensitive.h"

namespace platform::detail {
namespace {

using Clock = URLLoaderTransfer::Clock;

// Fields under one name, whatever its case, joined with ", " under the first spelling, as the
// platform reports repeated fields.
std::shared_ptr<NSDictionary> joinedFields(const CurlHttpTransfer::HeaderFields& fields) {
    CurlHttpTransfer::HeaderFields joined;
    for (const auto& field : fields) {
        const std::string& name = field.first;
        auto it = std::find_if(joined.begin(), joined.end(),
                               [&name](const auto& entry) { return equalsIgnoringCase(entry.first, name); });
        if (it == joined.end()) {
            joined.push_back(field);
        } else {
            it->second += ", " + field.second;
        }
    }
    return NSDictionary::dictionaryWithStrings(joined);
}

std::string firstField(const CurlHttpTransfer::HeaderFields& fields, std::string_view name) {
    for (const auto& [field, value] : fields) {
        if (equalsIgnoringCase(field, name)) return value;
    }
    return {};
}

bool isRedirectStatus(long status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

std::string authenticationMethodFor(std::string_view scheme) {
    if (equalsIgnoringCase(scheme, "Basic")) return NSURLAuthenticationMethodHTTPBasic;
    if (equalsIgnoringCase(scheme, "Digest")) return NSURLAuthenticationMethodHTTPDigest;
    if (equalsIgnoringCase(scheme, "NTLM")) return NSURLAuthenticationMethodNTLM;
    if (equalsIgnoringCase(scheme, "Negotiate")) return NSURLAuthenticationMethodNegotiate;
    return NSURLAuthenticationMethodDefault;
}

// The realm parameter of a WWW-Authenticate challenge, quoted or not.
std::optional<std::string> realmOf(const std::string& challenge) {
    const std::string lower = asciiLowercased(challenge);
    auto at = lower.find("realm=");
    if (at == std::string::npos) return std::nullopt;
    at += 6;
    if (at < challenge.size() && challenge[at] == '"') {
        const auto end = challenge.find('"', at + 1);
        return challenge.substr(at + 1, end == std::string::npos ? std::string::npos : end - at - 1);
    }
    const auto end = challenge.find_first_of(", ", at);
    return challenge.substr(at, end == std::string::npos ? std::string::npos : end - at);
}

Clock::duration secondsToDuration(double seconds) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

Class URLHTTPProtocol::protocolClass() {
    return NSURLProtocol::registerSubclass<URLHTTPProtocol>();
}

bool URLHTTPProtocol::canInitWithRequest(const std::shared_ptr<NSURLRequest>& request) {
    if (!request || !request->URL()) return false;
    const auto& scheme = request->URL()->scheme();
    return scheme && (*scheme == "http" || *scheme == "https") && request->URL()->host().has_value();
}

std::shared_ptr<URLHTTPProtocol> URLHTTPProtocol::self() {
    return std::dynamic_pointer_cast<URLHTTPProtocol>(shared_from_this());
}

void URLHTTPProtocol::startLoading() {
    loading_ = request();
    double resourceTimeout = 604800.0;
    if (auto task = this->task()) {
        if (auto session = task->session()) {
            const auto& configuration = session->configurationObject();
            resourceTimeout = configuration->timeoutIntervalForResource();
            sessionIdleTimeout_ = configuration->timeoutIntervalForRequest();
            additionalHeaders_ = configuration->HTTPAdditionalHeaders();
        }
    }
    resourceDeadline_ =
        resourceTimeout > 0 ? Clock::now() + secondsToDuration(resourceTimeout) : Clock::time_point::max();
    if (loading_ && !loading_->HTTPBody() && loading_->HTTPBodyStream()) {
        openedStream_ = loading_->HTTPBodyStream();
        openedStream_->open();
    }
    beginTransfer();
}

void URLHTTPProtocol::stopLoading() {
    stopped_ = true;
    awaitingAnswer_ = false;
    if (transfer_) transfer_->cancel();
    transfer_.reset();
    if (openedStream_) openedStream_->close();
    openedStream_.reset();
}

void URLHTTPProtocol::beginTransfer() {
    outcome_ = Outcome::deliver;
    heldResponse_.reset();
    heldBody_ = NSMutableData::data();
    location_.clear();
    authenticate_.clear();

    CurlHttpTransfer::Options options;
    options.request = loading_;
    if (loading_) {
        options.body = loading_->HTTPBody();
        if (!options.body) options.stream = openedStream_;
        const double idle =
            loading_->timeoutInterval() > 0 ? loading_->timeoutInterval() : sessionIdleTimeout_;
        options.idleTimeout = secondsToDuration(idle);
    }
    options.additionalHeaders = additionalHeaders_;
    options.credential = credential_;
    options.resourceDeadline = resourceDeadline_;

    std::weak_ptr<URLHTTPProtocol> weak = self();
    CurlHttpTransfer::Handlers handlers;
    handlers.headers = [weak](long status, std::string version, CurlHttpTransfer::HeaderFields fields) {
        if (auto protocol = weak.lock()) protocol->receivedHeaders(status, version, fields);
    };
    handlers.body = [weak](std::shared_ptr<NSData> piece) {
        if (auto protocol = weak.lock()) protocol->receivedBody(piece);
    };
    handlers.end = [weak](std::shared_ptr<NSError> error) {
        if (auto protocol = weak.lock()) protocol->ended(error);
    };
    transfer_ = loading_ ? CurlHttpTransfer::make(std::move(options), std::move(handlers)) : nullptr;
    if (!transfer_ || !transfer_->start()) {
        transfer_.reset();
        if (auto client = this->client()) {
            client->URLProtocol_didFailWithError(
                this, NSURLErrorWithCode(NSURLErrorBadURL, loading_ ? loading_->URL() : nullptr));
        }
    }
}

void URLHTTPProtocol::receivedHeaders(long status, const std::string& version,
                                      const CurlHttpTransfer::HeaderFields& fields) {
    heldResponse_ =
        std::make_shared<NSHTTPURLResponse>(loading_->URL(), status, version, joinedFields(fields));
    location_ = firstField(fields, "Location");
    authenticate_ = firstField(fields, "WWW-Authenticate");
    if (isRedirectStatus(status) && !location_.empty()) {
        outcome_ = Outcome::redirect;
    } else if (status == 401 && !authenticate_.empty()) {
        outcome_ = Outcome::challenge;
    } else {
        outcome_ = Outcome::deliver;
        // No cache keeps anything, so nothing may be stored.
        if (auto client = this->client()) {
            client->URLProtocol_didReceiveResponse_cacheStoragePolicy(this, heldResponse_,
                                                                      NSURLCacheStorageNotAllowed);
        }
    }
}

void URLHTTPProtocol::receivedBody(const std::shared_ptr<NSData>& piece) {
    if (outcome_ != Outcome::deliver) {
        heldBody_->appendData(*piece);
    } else if (auto client = this->client()) {
        client->URLProtocol_didLoadData(this, piece);
    }
}

void URLHTTPProtocol::ended(const std::shared_ptr<NSError>& error) {
    auto transfer = std::move(transfer_);
    if (stopped_) return;
    if (openedStream_ && transfer) {
        // The stream is spent; a retry or a redirect that keeps the body sends what was read.
        auto kept = loading_->mutableCopy();
        kept->setHTTPBody(NSData::dataWithString(transfer->streamedBody()));
        loading_ = kept->copy();
        openedStream_->close();
        openedStream_.reset();
    }
    auto client = this->client();
    if (!client) return;
    if (error) {
        client->URLProtocol_didFailWithError(this, error);
        return;
    }
    switch (outcome_) {
        case Outcome::deliver:
            client->URLProtocolDidFinishLoading(this);
            return;
        case Outcome::redirect:
            if (auto next = redirectedRequest(location_))
                client->URLProtocol_wasRedirectedToRequest_redirectResponse(this, next, heldResponse_);
            deliverHeldResponse();
            return;
        case Outcome::challenge:
            awaitingAnswer_ = true;
            client->URLProtocol_didReceiveAuthenticationChallenge(this, makeChallenge(authenticate_));
            return;
    }
}

void URLHTTPProtocol::deliverHeldResponse() {
    auto client = this->client();
    if (!client || !heldResponse_) return;
    client->URLProtocol_didReceiveResponse_cacheStoragePolicy(this, heldResponse_,
                                                              NSURLCacheStorageNotAllowed);
    if (heldBody_ && heldBody_->length() > 0) client->URLProtocol_didLoadData(this, heldBody_);
    heldBody_ = NSMutableData::data();
    client->URLProtocolDidFinishLoading(this);
}

std::shared_ptr<NSURLRequest> URLHTTPProtocol::redirectedRequest(const std::string& location) const {
    auto target = NSURL::URLWithString(location, loading_->URL());
    if (!target) return nullptr;
    auto next = loading_->mutableCopy();
    next->setURL(target);
    const long status = heldResponse_->statusCode();
    const std::string& method = loading_->HTTPMethod();
    // 303 always, and 301/302 after a POST, become a GET without a body; 307 and 308 keep both.
    if ((status == 303 && method != "HEAD") || ((status == 301 || status == 302) && method == "POST")) {
        next->setHTTPMethod("GET");
        next->setHTTPBody(nullptr);
        next->setHTTPBodyStream(nullptr);
        next->setValue(std::nullopt, "Content-Type");
        next->setValue(std::nullopt, "Content-Length");
    }
    return next->copy();
}

std::shared_ptr<NSURLAuthenticationChallenge> URLHTTPProtocol::makeChallenge(
    const std::string& authenticate) {
    const auto& url = loading_->URL();
    const std::string scheme = url->scheme().value_or("http");
    const long port = url->port().value_or(scheme == "https" ? 443 : 80);
    const std::string authScheme = authenticate.substr(0, authenticate.find(' '));
    auto space = std::make_shared<NSURLProtectionSpace>(
        url->host().value_or(""), port, scheme, realmOf(authenticate), authenticationMethodFor(authScheme));
    return std::make_shared<NSURLAuthenticationChallenge>(space, nullptr, failureCount_, heldResponse_,
                                                          nullptr, self());
}

void URLHTTPProtocol::answer(Answer answer, std::shared_ptr<NSURLCredential> credential) {
    URLLoaderThread::shared().perform([protocol = self(), answer, credential = std::move(credential)] {
        protocol->answerOnLoader(answer, credential);
    });
}

void URLHTTPProtocol::answerOnLoader(Answer answer, const std::shared_ptr<NSURLCredential>& credential) {
    if (stopped_ || !awaitingAnswer_) return;
    awaitingAnswer_ = false;
    switch (answer) {
        case Answer::useCredential:
            if (!credential) return deliverHeldResponse();
            credential_ = credential;
            ++failureCount_;
            beginTransfer();
            return;
        case Answer::deliverResponse:
            deliverHeldResponse();
            return;
        case Answer::cancel:
            if (auto client = this->client()) {
                client->URLProtocol_didFailWithError(
                    this, NSURLErrorWithCode(NSURLErrorCancelled, loading_->URL()));
            }
            return;
    }
}

void URLHTTPProtocol::useCredential(const std::shared_ptr<NSURLCredential>& credential,
                                    const std::shared_ptr<NSURLAuthenticationChallenge>&) {
    answer(Answer::useCredential, credential);
}

void URLHTTPProtocol::continueWithoutCredentialForAuthenticationChallenge(
    const std::shared_ptr<NSURLAuthenticationChallenge>&) {
    answer(Answer::deliverResponse, nullptr);
}

void URLHTTPProtocol::cancelAuthenticationChallenge(const std::shared_ptr<NSURLAuthenticationChallenge>&) {
    answer(Answer::cancel, nullptr);
}

void URLHTTPProtocol::performDefaultHandlingForAuthenticationChallenge(
    const std::shared_ptr<NSURLAuthenticationChallenge>&) {
    // No credential storage: default handling goes on without a credential.
    answer(Answer::deliverResponse, nullptr);
}

void URLHTTPProtocol::rejectProtectionSpaceAndContinueWithChallenge(
    const std::shared_ptr<NSURLAuthenticationChallenge>&) {
    // A single protection space is offered, so there is none to go on to.
    answer(Answer::deliverResponse, nullptr);
}

}  // namespace platform::detail
