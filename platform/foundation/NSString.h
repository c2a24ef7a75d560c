#pragma once
// Strings, held as UTF-8.
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/NSObject.h"

namespace platform {

class NSData;

enum NSStringEncoding : unsigned long { NSASCIIStringEncoding = 1, NSUTF8StringEncoding = 4 };

class NSString : public NSObject {
    PLATFORM_OBJC_CLASS(NSString, NSObject)
public:
    explicit NSString(std::string utf8) : value_(std::move(utf8)) {}

    static std::shared_ptr<NSString> stringWithString(std::string utf8);
    // nil when the bytes are not valid in `encoding` (only ASCII and UTF-8 are offered).
    static std::shared_ptr<NSString> initWithData(const NSData& data, NSStringEncoding encoding);
    static std::shared_ptr<NSString> initWithBytes(std::string_view bytes, NSStringEncoding encoding);

    const std::string& UTF8String() const { return value_; }
    std::size_t lengthOfBytesUsingUTF8() const { return value_.size(); }
    bool hasPrefix(std::string_view prefix) const { return value_.starts_with(prefix); }
    bool hasSuffix(std::string_view suffix) const { return value_.ends_with(suffix); }
    std::shared_ptr<NSData> dataUsingEncoding(NSStringEncoding encoding) const;

    bool isEqual(const NSObject* other) const override;
    std::size_t hash() const override;
    std::string description() const override { return value_; }

private:
    std::string value_;
};

// Validity of bytes in an encoding, as NSString's decoding judges it.
bool NSStringIsValidUTF8(std::string_view bytes);
// `bytes` decoded as UTF-8 the lenient way a string made from arbitrary bytes is: each byte that
// doesn't begin a valid sequence becomes U+FFFD. Valid text comes back unchanged.
std::string NSStringByRepairingUTF8(std::string_view bytes);
bool NSStringIsValidASCII(std::string_view bytes);
// precomposedStringWithCanonicalMapping: the text in Unicode Normalization Form C, so that
// canonically equivalent strings come out byte for byte the same. Bytes that aren't valid UTF-8
// (which no NSString holds) come back unchanged.
std::string NSStringPrecomposedWithCanonicalMapping(std::string_view utf8);

inline std::shared_ptr<NSString> NSStr(std::string utf8) { return std::make_shared<NSString>(std::move(utf8)); }

// The string value of an object that is an NSString, else nullopt.
std::optional<std::string> NSStringValue(const id& object);

}  // namespace platform
