#include "platform/url/detail/URLProtocolTaskClient.h"

#include "platform/url/detail/URLSessionTaskDriver.h"

namespace platform::detail {
namespace {

using Kind = URLProtocolEvent::Kind;

}  // namespace

void URLProtocolTaskClient::URLProtocol_wasRedirectedToRequest_redirectResponse(
    NSURLProtocol*, const std::shared_ptr<NSURLRequest>& request,
    const std::shared_ptr<NSURLResponse>& response) {
    if (auto driver = driver_.lock()) {
        URLProtocolEvent event{Kind::redirect};
        event.request = request;
        event.response = response;
        driver->post(generation_, std::move(event));
    }
}

void URLProtocolTaskClient::URLProtocol_didReceiveResponse_cacheStoragePolicy(
    NSURLProtocol*, const std::shared_ptr<NSURLResponse>& response, NSURLCacheStoragePolicy) {
    // No cache: the storage policy has nowhere to apply.
    if (auto driver = driver_.lock()) {
        URLProtocolEvent event{Kind::response};
        event.response = response;
        driver->post(generation_, std::move(event));
    }
}

void URLProtocolTaskClient::URLProtocol_didLoadData(NSURLProtocol*, const std::shared_ptr<NSData>& data) {
    if (auto driver = driver_.lock()) {
        URLProtocolEvent event{Kind::data};
        event.data = data;
        driver->post(generation_, std::move(event));
    }
}

void URLProtocolTaskClient::URLProtocolDidFinishLoading(NSURLProtocol*) {
    if (auto driver = driver_.lock()) driver->post(generation_, URLProtocolEvent{Kind::finish});
}

void URLProtocolTaskClient::URLProtocol_didFailWithError(NSURLProtocol*,
                                                         const std::shared_ptr<NSError>& error) {
    if (auto driver = driver_.lock()) {
        URLProtocolEvent event{Kind::fail};
        event.error = error;
        driver->post(generation_, std::move(event));
    }
}

void URLProtocolTaskClient::URLProtocol_didReceiveAuthenticationChallenge(
    NSURLProtocol*, const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) {
    if (auto driver = driver_.lock()) {
        URLProtocolEvent event{Kind::challenge};
        event.challenge = challenge;
        driver->post(generation_, std::move(event));
    }
}

void URLProtocolTaskClient::URLProtocol_didCancelAuthenticationChallenge(
    NSURLProtocol*, const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) {
    if (auto driver = driver_.lock()) {
        URLProtocolEvent event{Kind::cancelChallenge};
        event.challenge = challenge;
        driver->post(generation_, std::move(event));
    }
}

}  // namespace platform::detail
