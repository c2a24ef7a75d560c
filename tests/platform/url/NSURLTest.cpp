// URLs, requests and responses as values: which texts are URLs, what travels with a request's
// copies, and header fields that are not strings.
#include <gtest/gtest.h>

#include <string>

#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSMutableURLRequest.h"
#include "platform/url/NSURL.h"
#include "platform/url/NSURLProtocol.h"

namespace {

using namespace platform;

class NSURLValidity : public ::testing::TestWithParam<std::pair<std::string, bool>> {};

TEST_P(NSURLValidity, AcceptsExactlyTheValidTextsKeepingThemAsGiven) {
    const auto& [text, valid] = GetParam();
    auto url = NSURL::URLWithString(text);
    ASSERT_EQ(url != nullptr, valid) << '"' << text << '"';
    if (url) {
        EXPECT_EQ(url->absoluteString(), text);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, NSURLValidity,
    ::testing::Values(
        std::pair("https://example.com/v1/ingest?x=1#top", true), std::pair("http://127.0.0.1:8080/", true),
        std::pair("http://[::1]:80/a", true), std::pair("http://example.com/a%20b", true),
        std::pair("mailto:someone@example.com", true), std::pair("relative/path?q=1", true),
        std::pair("http://user:pw@example.com/", true), std::pair("", false),
        std::pair("http://example.com/a b", false), std::pair(" http://example.com", false),
        std::pair("http://example.com/%zz", false), std::pair("http://example.com/%4", false),
        std::pair("http://example.com/\"q\"", false), std::pair("http://example.com/<tag>", false),
        std::pair("http://example.com/a|b", false), std::pair("http://example.com/{x}", false),
        std::pair("http://example.com/caf\xC3\xA9", false), std::pair("http://example.com/a#b#c", false),
        std::pair("http://example.com/[x]", false), std::pair("http://example.com:99999/", false),
        std::pair("http://", false)));

TEST(NSURLRequest, CopiesCarryEveryFieldAndTheProtocolPropertiesIndependently) {
    auto request = NSMutableURLRequest::requestWithURL(NSURL::URLWithString("https://example.com/upload"));
    request->setHTTPMethod("POST");
    request->setTimeoutInterval(12.5);
    request->setValue("1", "X-Version");
    request->setHTTPBody(NSData::dataWithString("payload"));
    NSURLProtocol::setProperty(NSNumber::numberWithBool(true), "handled", request);

    auto frozen = request->copy();
    auto thawed = frozen->mutableCopy();
    for (const std::shared_ptr<NSURLRequest>& copy : {frozen, std::shared_ptr<NSURLRequest>(thawed)}) {
        EXPECT_EQ(copy->URL()->absoluteString(), "https://example.com/upload");
        EXPECT_EQ(copy->HTTPMethod(), "POST");
        EXPECT_DOUBLE_EQ(copy->timeoutInterval(), 12.5);
        EXPECT_EQ(copy->valueForHTTPHeaderField("x-version"), "1");
        EXPECT_EQ(copy->HTTPBody()->string(), "payload");
        EXPECT_TRUE(
            NSObjectsEqual(NSURLProtocol::propertyForKey("handled", copy), NSNumber::numberWithBool(true)));
    }
    NSURLProtocol::removePropertyForKey("handled", thawed);
    thawed->setHTTPMethod("PUT");
    EXPECT_EQ(NSURLProtocol::propertyForKey("handled", thawed), nullptr);
    EXPECT_NE(NSURLProtocol::propertyForKey("handled", frozen), nullptr);
    EXPECT_EQ(frozen->HTTPMethod(), "POST");
}

TEST(NSHTTPURLResponse, TakesHeaderFieldsThatAreNotStrings) {
    auto fields = NSDictionary::dictionaryWithObjectsForKeys({
        {NSStr("Content-Type"), NSStr("application/json; charset=UTF-8")},
        {NSStr("X-Count"), NSNumber::numberWithLongLong(7)},
    });
    auto response =
        NSHTTPURLResponse::initWithURL(NSURL::URLWithString("https://example.com/"), 201, "HTTP/1.1", fields);
    EXPECT_EQ(response->allHeaderFields()->count(), 2u);
    EXPECT_TRUE(NSObjectsEqual(response->allHeaderFields()->objectForKey(std::string("X-Count")),
                               NSNumber::numberWithLongLong(7)));
    EXPECT_EQ(response->valueForHTTPHeaderField("x-count"), std::nullopt) << "no string to give";
    EXPECT_EQ(response->valueForHTTPHeaderField("content-type"), "application/json; charset=UTF-8");
    EXPECT_EQ(response->MIMEType(), "application/json");
}

}  // namespace
