#pragma once
// The client the URL loading system gives one protocol instance: it passes each report on to the
// task's driver, tagged with the instance's generation. Any thread may call it. It does not keep
// the task alive.
#include <cstdint>
#include <memory>

#include "platform/url/NSURLProtocolClient.h"

namespace platform::detail {

class URLSessionTaskDriver;

class URLProtocolTaskClient final : public NSURLProtocolClient {
public:
    URLProtocolTaskClient(std::weak_ptr<URLSessionTaskDriver> driver, uint64_t generation)
        : driver_(std::move(driver)), generation_(generation) {}

    void URLProtocol_wasRedirectedToRequest_redirectResponse(
        NSURLProtocol* protocol, const std::shared_ptr<NSURLRequest>& request,
        const std::shared_ptr<NSURLResponse>& response) override;
    void URLProtocol_didReceiveResponse_cacheStoragePolicy(NSURLProtocol* protocol,
                                                           const std::shared_ptr<NSURLResponse>& response,
                                                           NSURLCacheStoragePolicy policy) override;
    void URLProtocol_didLoadData(NSURLProtocol* protocol, const std::shared_ptr<NSData>& data) override;
    void URLProtocolDidFinishLoading(NSURLProtocol* protocol) override;
    void URLProtocol_didFailWithError(NSURLProtocol* protocol,
                                      const std::shared_ptr<NSError>& error) override;
    void URLProtocol_didReceiveAuthenticationChallenge(
        NSURLProtocol* protocol, const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) override;
    void URLProtocol_didCancelAuthenticationChallenge(
        NSURLProtocol* protocol, const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) override;

private:
    const std::weak_ptr<URLSessionTaskDriver> driver_;
    const uint64_t generation_;
};

}  // namespace platform::detail
