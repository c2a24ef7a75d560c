#include <gtest/gtest.h>

#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSInputStream.h"
#include "platform/url/NSMutableURLRequest.h"
#include "platform/url/NSURLProtocol.h"

namespace {

using namespace platform;

std::shared_ptr<NSMutableURLRequest> sampleRequest() {
    return NSMutableURLRequest::requestWithURL(NSURL::URLWithString("https://example.com/upload"));
}

TEST(NSURLRequest, StartsAsThePlatformsDefaults) {
    auto request = NSURLRequest::requestWithURL(NSURL::URLWithString("https://example.com/"));
    EXPECT_EQ(request->HTTPMethod(), "GET");
    EXPECT_EQ(request->cachePolicy(), NSURLRequestUseProtocolCachePolicy);
    EXPECT_DOUBLE_EQ(request->timeoutInterval(), 60.0);
    EXPECT_EQ(request->allHTTPHeaderFields(), std::nullopt) << "nil until a field is set";
    EXPECT_EQ(request->HTTPBody(), nullptr);
    EXPECT_EQ(request->HTTPBodyStream(), nullptr);
}

TEST(NSURLRequest, HeaderFieldsIgnoreCaseAndJoinAddedValues) {
    auto request = sampleRequest();
    request->setValue("application/json", "Content-Type");
    request->setValue("text/plain", "content-type");
    request->addValue("a", "X-Tag");
    request->addValue("b", "x-tag");
    EXPECT_EQ(request->valueForHTTPHeaderField("CONTENT-TYPE"), "text/plain");
    EXPECT_EQ(request->valueForHTTPHeaderField("X-Tag"), "a,b");
    auto fields = request->allHTTPHeaderFields();
    ASSERT_TRUE(fields);
    EXPECT_EQ(fields->size(), 2u) << "one entry per name, whatever its case";
    EXPECT_EQ(fields->count("Content-Type"), 1u) << "the first spelling stays";

    request->setValue(std::nullopt, "x-TAG");
    EXPECT_EQ(request->valueForHTTPHeaderField("X-Tag"), std::nullopt);
}

TEST(NSURLRequest, BodyAndBodyStreamExcludeEachOther) {
    auto request = sampleRequest();
    request->setHTTPBody(NSData::dataWithString("abc"));
    request->setHTTPBodyStream(NSInputStream::inputStreamWithData(NSData::dataWithString("xyz")));
    EXPECT_EQ(request->HTTPBody(), nullptr);
    ASSERT_NE(request->HTTPBodyStream(), nullptr);
    request->setHTTPBody(NSData::dataWithString("abc"));
    EXPECT_EQ(request->HTTPBodyStream(), nullptr);
}

TEST(NSURLRequest, CopiesCarryEveryFieldAndTheProtocolProperties) {
    auto request = sampleRequest();
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
    EXPECT_FALSE(frozen->isKindOfClass(NSMutableURLRequest::class_()));
    EXPECT_TRUE(thawed->isKindOfClass(NSMutableURLRequest::class_()));

    NSURLProtocol::removePropertyForKey("handled", thawed);
    thawed->setHTTPMethod("PUT");
    EXPECT_EQ(NSURLProtocol::propertyForKey("handled", thawed), nullptr);
    EXPECT_NE(NSURLProtocol::propertyForKey("handled", frozen), nullptr) << "copies are independent";
    EXPECT_EQ(frozen->HTTPMethod(), "POST");
}

TEST(NSInputStream, ReadsItsDataInPiecesThenEnds) {
    auto stream = NSInputStream::inputStreamWithData(NSData::dataWithString("abcdefg"));
    uint8_t buffer[3];
    EXPECT_EQ(stream->read(buffer, sizeof buffer), -1) << "not open yet";
    stream->open();
    std::string read;
    for (int i = 0; i < 10; ++i) {
        const long count = stream->read(buffer, sizeof buffer);
        ASSERT_GE(count, 0);
        if (count == 0) break;
        read.append(reinterpret_cast<char*>(buffer), static_cast<std::size_t>(count));
    }
    EXPECT_EQ(read, "abcdefg");
    EXPECT_EQ(stream->streamStatus(), NSStreamStatusAtEnd);
    EXPECT_FALSE(stream->hasBytesAvailable());
    stream->close();
    EXPECT_EQ(stream->streamStatus(), NSStreamStatusClosed);
}

TEST(NSHTTPURLResponse, TakesHeaderFieldsThatAreNotStrings) {
    auto fields = NSDictionary::dictionaryWithObjectsForKeys({
        {NSStr("Content-Type"), NSStr("application/json; charset=UTF-8")},
        {NSStr("Content-Length"), NSStr("42")},
        {NSStr("X-Count"), NSNumber::numberWithLongLong(7)},
    });
    auto response =
        NSHTTPURLResponse::initWithURL(NSURL::URLWithString("https://example.com/"), 201, "HTTP/1.1", fields);
    EXPECT_EQ(response->statusCode(), 201);
    EXPECT_EQ(response->allHeaderFields()->count(), 3u);
    EXPECT_TRUE(NSObjectsEqual(response->allHeaderFields()->objectForKey(std::string("X-Count")),
                               NSNumber::numberWithLongLong(7)));
    EXPECT_EQ(response->valueForHTTPHeaderField("x-count"), std::nullopt) << "no string to give";
    EXPECT_EQ(response->valueForHTTPHeaderField("content-type"), "application/json; charset=UTF-8");
    EXPECT_EQ(response->MIMEType(), "application/json");
    EXPECT_EQ(response->textEncodingName(), "utf-8");
    EXPECT_EQ(response->expectedContentLength(), 42);

    auto bare = NSHTTPURLResponse::initWithURL(NSURL::URLWithString("https://example.com/"), 204,
                                               std::nullopt, nullptr);
    ASSERT_NE(bare->allHeaderFields(), nullptr);
    EXPECT_EQ(bare->allHeaderFields()->count(), 0u);
    EXPECT_EQ(bare->expectedContentLength(), NSURLResponseUnknownLength);
}

}  // namespace
