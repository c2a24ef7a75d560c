// Decoding rules the library leans on: which bytes count as UTF-8 or ASCII text (bodies and log
// pieces that fail are left out of capture), and equality of boxed values used as dictionary keys.
#include <gtest/gtest.h>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"

using namespace platform;

namespace {

struct DecodeCase {
    const char* name;
    std::string bytes;
    bool utf8;
    bool ascii;
};

class DecodeTest : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(DecodeTest, DecodesOnlyValidText) {
    const DecodeCase& c = GetParam();
    EXPECT_EQ(NSStringIsValidUTF8(c.bytes), c.utf8);
    EXPECT_EQ(NSStringIsValidASCII(c.bytes), c.ascii);
    auto data = NSData::dataWithString(c.bytes);
    auto asUtf8 = NSString::initWithData(*data, NSUTF8StringEncoding);
    EXPECT_EQ(asUtf8 != nullptr, c.utf8);
    if (asUtf8) {
        EXPECT_EQ(asUtf8->UTF8String(), c.bytes);
    }
    EXPECT_EQ(NSString::initWithData(*data, NSASCIIStringEncoding) != nullptr, c.ascii);
}

INSTANTIATE_TEST_SUITE_P(
    Bytes, DecodeTest,
    ::testing::Values(DecodeCase{"empty", "", true, true}, DecodeCase{"plain", "hello\n", true, true},
                      DecodeCase{"nul", std::string("a\0b", 3), true, true},
                      DecodeCase{"eAcute", "\xC3\xA9", true, false},
                      DecodeCase{"euroSign", "\xE2\x82\xAC", true, false},
                      DecodeCase{"emoji", "\xF0\x9F\x98\x80", true, false},
                      DecodeCase{"loneContinuation", "\x80", false, false},
                      DecodeCase{"truncated", "\xE2\x82", false, false},
                      DecodeCase{"overlongSlash", "\xC0\xAF", false, false},
                      DecodeCase{"surrogate", "\xED\xA0\x80", false, false},
                      DecodeCase{"pastMaximum", "\xF4\x90\x80\x80", false, false},
                      DecodeCase{"latin1Byte", "caf\xE9", false, false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(NSValueTypesTest, BoxedValuesCompareByValueAsDictionaryKeys) {
    auto dict = NSMutableDictionary::dictionary();
    dict->setObjectForKey(NSStr("v"), "Content-Type");
    dict->setObjectForKey(NSNumber::numberWithLongLong(7), NSNumber::numberWithDouble(1.0));
    EXPECT_EQ(NSStringValue(dict->objectForKey(std::string("Content-Type"))), "v");
    EXPECT_EQ(dict->objectForKey(std::string("content-type")), nullptr);
    EXPECT_NE(dict->objectForKey(NSNumber::numberWithLongLong(1)), nullptr);
    EXPECT_FALSE(NSNumber::numberWithLongLong(-1)->isEqual(NSNumber::numberWithUnsignedLongLong(UINT64_MAX).get()));
    EXPECT_FALSE(NSStr("1")->isEqual(NSNumber::numberWithLongLong(1).get()));
    EXPECT_TRUE(NSNull::null()->isEqual(NSNull::null().get()));
}

TEST(NSValueTypesTest, ErrorTextComesFromItsDescriptionOrItsDomainAndCode) {
    auto described = NSError::errorWithDescription(NSURLErrorDomain, NSURLErrorTimedOut, "The request timed out.");
    EXPECT_EQ(described->localizedDescription(), "The request timed out.");
    EXPECT_EQ(described->description(),
              "Error Domain=NSURLErrorDomain Code=-1001 \"The request timed out.\"");
    auto bare = NSError::errorWithDomain("Demo", 5);
    EXPECT_NE(bare->localizedDescription().find("Demo error 5"), std::string::npos);
}

}  // namespace
