#pragma once
// What a protocol reports its loading to. The URL loading system gives each protocol instance a
// client of its own. A protocol may call its client on any thread, one call at a time, in the
// order of the events; after it has reported the end (finish or failure) it calls no more.
#include <memory>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSObject.h"
#include "platform/url/NSCachedURLResponse.h"
#include "platform/url/NSURLAuthenticationChallenge.h"
#include "platform/url/NSURLRequest.h"
#include "platform/url/NSURLResponse.h"

namespace platform {

class NSURLProtocol;

// The C++ names map to the platform's selectors:
//   URLProtocol_wasRedirectedToRequest_redirectResponse URLProtocol:wasRedirectedToRequest:redirectResponse:
//   URLProtocol_didReceiveResponse_cacheStoragePolicy     URLProtocol:didReceiveResponse:cacheStoragePolicy:
//   URLProtocol_didLoadData                               URLProtocol:didLoadData:
//   URLProtocolDidFinishLoading                           URLProtocolDidFinishLoading:
//   URLProtocol_didFailWithError                          URLProtocol:didFailWithError:
//   URLProtocol_didReceiveAuthenticationChallenge         URLProtocol:didReceiveAuthenticationChallenge:
//   URLProtocol_didCancelAuthenticationChallenge          URLProtocol:didCancelAuthenticationChallenge:
class NSURLProtocolClient : public virtual NSObject {
public:
    virtual void URLProtocol_wasRedirectedToRequest_redirectResponse(
        NSURLProtocol* protocol, const std::shared_ptr<NSURLRequest>& request,
        const std::shared_ptr<NSURLResponse>& response) = 0;
    virtual void URLProtocol_didReceiveResponse_cacheStoragePolicy(
        NSURLProtocol* protocol, const std::shared_ptr<NSURLResponse>& response,
        NSURLCacheStoragePolicy policy) = 0;
    virtual void URLProtocol_didLoadData(NSURLProtocol* protocol, const std::shared_ptr<NSData>& data) = 0;
    virtual void URLProtocolDidFinishLoading(NSURLProtocol* protocol) = 0;
    virtual void URLProtocol_didFailWithError(NSURLProtocol* protocol,
                                              const std::shared_ptr<NSError>& error) = 0;
    // The answer goes to challenge->sender().
    virtual void URLProtocol_didReceiveAuthenticationChallenge(
        NSURLProtocol* protocol, const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) = 0;
    virtual void URLProtocol_didCancelAuthenticationChallenge(
        NSURLProtocol* protocol, const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) = 0;
};

}  // namespace platform
