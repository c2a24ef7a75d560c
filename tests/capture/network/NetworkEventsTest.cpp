// From platform requests and responses to Request, Response and their wire messages, where the
// end-to-end tests can't reach: requests the loading system never shapes so, odd header values.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "capture/network/NetworkEvents.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "platform/url/NSMutableURLRequest.h"

using namespace quillmere;
using platform::NSData;

namespace {

std::shared_ptr<platform::NSMutableURLRequest> requestFor(const std::string& url) {
    return platform::NSMutableURLRequest::requestWithURL(platform::NSURL::URLWithString(url));
}

TEST(NetworkEvents, ARequestWithoutHeadersIsNotCapturedAndItsStreamNotSpent) {
    auto request = requestFor("https://example.com/");
    const auto stream = platform::NSInputStream::inputStreamWithData(NSData::dataWithString("streamed"));
    request->setHTTPBodyStream(stream);
    EXPECT_FALSE(requestFrom(*request, 1));
    EXPECT_EQ(stream->streamStatus(), platform::NSStreamStatusNotOpen);

    request->setValue("text/plain", "Content-Type");
    const auto captured = requestFrom(*request, 1);
    ASSERT_TRUE(captured);
    EXPECT_EQ(captured->body()->string(), "streamed");
    EXPECT_EQ(stream->streamStatus(), platform::NSStreamStatusClosed);
}

TEST(NetworkEvents, OneHeaderValueThatIsNoStringLosesAllHeaders) {
    const auto request = requestFor("https://example.com/start");
    request->setHTTPMethod("PUT");
    const auto fields = platform::NSDictionary::dictionaryWithObjectsForKeys(
        {{platform::NSStr("X-Text"), platform::NSStr("fine")},
         {platform::NSStr("X-Count"), platform::NSNumber::numberWithLongLong(2)}});
    const auto http = platform::NSHTTPURLResponse::initWithURL(
        platform::NSURL::URLWithString("https://example.com/end"), 201, "HTTP/1.1", fields);
    const auto response = responseFrom(http, *request, nullptr, 3);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->headers(), Response::Headers{});
    const auto event = makeResponseEvent(*response, 2.5);
    EXPECT_EQ(std::make_tuple(event.url(), event.status(), event.method()),
              std::make_tuple(std::string("https://example.com/end"), 201u, qm::network::PUT));
    EXPECT_DOUBLE_EQ(event.duration(), 0.0025);
}

TEST(NetworkEvents, AHeaderThatIsNoUtf8IsLeftOutSoTheEventStillDecodes) {
    auto urlRequest = requestFor("https://example.com/");
    urlRequest->setValue("1", "X-One");
    urlRequest->setValue("caf\xe9", "X-Latin1");
    const auto request = requestFrom(*urlRequest, 0);
    ASSERT_TRUE(request);
    const auto event = makeRequestEvent(*request);
    EXPECT_EQ(event.headers().size(), 1u);
    qm::network::RequestEvent decoded;
    EXPECT_TRUE(decoded.ParseFromString(event.SerializeAsString()));
}

}  // namespace
