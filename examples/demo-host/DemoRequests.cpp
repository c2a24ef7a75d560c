#include "examples/demo-host/DemoRequests.h"

#include <cstdio>
#include <string>
#include <vector>

#include "platform/foundation/NSData.h"
#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSMutableURLRequest.h"
#include "platform/url/NSURLSession.h"

namespace demo {

using namespace platform;

namespace {

std::shared_ptr<NSMutableURLRequest> apiRequest(const std::string& url, const std::string& method,
                                                const std::string& jsonBody = {}) {
    auto request = NSMutableURLRequest::requestWithURL(NSURL::URLWithString(url));
    request->setHTTPMethod(method);
    request->setValue("application/json", "Accept");
    if (!jsonBody.empty()) {
        request->setValue("application/json", "Content-Type");
        request->setHTTPBody(NSData::dataWithString(jsonBody));
    }
    return request;
}

// The calls still to make, each started from the end of the one before, so no thread waits.
struct Calls : std::enable_shared_from_this<Calls> {
    std::shared_ptr<NSURLSession> session;
    std::vector<std::shared_ptr<NSMutableURLRequest>> requests;
    std::size_t next = 0;
    std::shared_ptr<std::atomic<bool>> done;

    void makeNext() {
        if (next == requests.size()) {
            session->finishTasksAndInvalidate();
            done->store(true);
            return;
        }
        const auto& request = requests[next++];
        const std::string label = request->HTTPMethod() + " " + request->URL()->absoluteString();
        session
            ->dataTaskWithRequest(
                request,
                [self = shared_from_this(), label](std::shared_ptr<NSData> data,
                                                   std::shared_ptr<NSURLResponse> response,
                                                   std::shared_ptr<NSError> error) {
                    const auto http = std::dynamic_pointer_cast<NSHTTPURLResponse>(response);
                    if (error || !http) {
                        std::printf("demo: %s failed (%ld)\n", label.c_str(), error ? error->code() : 0L);
                    } else {
                        std::printf("demo: %s -> %ld %s\n", label.c_str(), http->statusCode(),
                                    data ? data->string().c_str() : "");
                    }
                    self->makeNext();
                })
            ->resume();
    }
};

}  // namespace

void makeDemoRequests(const DemoEndpoint& endpoint, std::shared_ptr<std::atomic<bool>> done) {
    auto calls = std::make_shared<Calls>();
    calls->session =
        NSURLSession::sessionWithConfiguration(NSURLSessionConfiguration::defaultSessionConfiguration());
    calls->requests = {
        apiRequest(endpoint.url("/api/profile"), "GET"),
        apiRequest(endpoint.url("/api/cart"), "POST", R"({"sku":"TEA-1/green","quantity":2})"),
        apiRequest(endpoint.url("/api/old-orders"), "GET"),
        apiRequest(endpoint.url("/api/coupons"), "GET"),
    };
    calls->done = std::move(done);
    calls->makeNext();
}

}  // namespace demo
