// Which bytes count as UTF-8 or ASCII text: bodies and log pieces that fail are left out of capture.
#include <gtest/gtest.h>

#include <optional>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSString.h"

using namespace platform;

namespace {

void expectDecoding(const std::string& bytes, bool utf8, bool ascii) {
    EXPECT_EQ(NSStringIsValidUTF8(bytes), utf8) << bytes;
    EXPECT_EQ(NSStringIsValidASCII(bytes), ascii) << bytes;
    auto data = NSData::dataWithString(bytes);
    auto asUtf8 = NSString::initWithData(*data, NSUTF8StringEncoding);
    EXPECT_EQ(asUtf8 ? std::optional(asUtf8->UTF8String()) : std::nullopt,
              utf8 ? std::optional(bytes) : std::nullopt);
    EXPECT_EQ(NSString::initWithData(*data, NSASCIIStringEncoding) != nullptr, ascii) << bytes;
}

TEST(NSString, DecodesOnlyValidText) {
    for (const std::string& ascii : {std::string(), std::string("hello\n"), std::string("a\0b", 3)}) {
        expectDecoding(ascii, true, true);
    }
    // The last two past a run of ASCII long enough to be read a word at a time.
    for (const char* utf8 :
         {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "eight ch\xC3\xA9", "sixteen chars..\xE2\x82\xAC!"})
        expectDecoding(utf8, true, false);
    // A lone continuation byte, a truncated sequence, an overlong '/', a surrogate, a code point
    // past the last, and Latin-1.
    for (const char* invalid :
         {"\x80", "\xE2\x82", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "caf\xE9", "long ascii run \xE9 then"}) {
        expectDecoding(invalid, false, false);
    }
    // One byte past ASCII, in a block of 64 or in the tail after the blocks.
    for (std::size_t at : {0, 63, 64, 127, 128, 130}) {
        std::string text(131, 'a');
        text[at] = '\x80';
        EXPECT_FALSE(NSStringIsValidASCII(text)) << at;
    }
    EXPECT_TRUE(NSStringIsValidASCII(std::string(131, '\x7f')));
}

}  // namespace
