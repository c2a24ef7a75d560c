#include "platform/foundation/NSString.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>

#include <utf8proc.h>

#include "platform/foundation/NSData.h"

namespace platform {

std::shared_ptr<NSString> NSString::stringWithString(std::string utf8) {
    return NSStr(std::move(utf8));
}

std::shared_ptr<NSString> NSString::initWithBytes(std::string_view bytes, NSStringEncoding encoding) {
    const bool valid = encoding == NSASCIIStringEncoding  ? NSStringIsValidASCII(bytes)
                       : encoding == NSUTF8StringEncoding ? NSStringIsValidUTF8(bytes)
                                                          : false;
    if (!valid) return nullptr;
    return NSStr(std::string(bytes));
}

std::shared_ptr<NSString> NSString::initWithData(const NSData& data, NSStringEncoding encoding) {
    return initWithBytes(data.view(), encoding);
}

std::shared_ptr<NSData> NSString::dataUsingEncoding(NSStringEncoding encoding) const {
    if (encoding == NSASCIIStringEncoding && !NSStringIsValidASCII(value_)) return nullptr;
    return NSData::dataWithBytes(value_.data(), value_.size());
}

bool NSString::isEqual(const NSObject* other) const {
    auto s = dynamic_cast<const NSString*>(other);
    return s != nullptr && s->value_ == value_;
}

std::size_t NSString::hash() const {
    return std::hash<std::string>{}(value_);
}

bool NSStringIsValidASCII(std::string_view bytes) {
    // Blocks of 64 without an early exit inside, which the compiler turns into vector code: console
    // output runs to hundreds of megabytes a second.
    constexpr std::size_t kBlock = 64;
    std::size_t i = 0;
    for (; i + kBlock <= bytes.size(); i += kBlock) {
        unsigned char any = 0;
        for (std::size_t j = 0; j < kBlock; ++j) any |= static_cast<unsigned char>(bytes[i + j]);
        if (any > 0x7F) return false;
    }
    for (; i < bytes.size(); ++i)
        if (static_cast<unsigned char>(bytes[i]) > 0x7F) return false;
    return true;
}

namespace {

// The length of the UTF-8 sequence that begins at bytes[i] (a byte above 0x7F), or 0 when no valid
// one does: overlong forms, surrogates and values past U+10FFFF are not UTF-8.
std::size_t sequenceLength(std::string_view bytes, std::size_t i) {
    const unsigned char c = static_cast<unsigned char>(bytes[i]);
    std::size_t len;
    unsigned int cp;
    if ((c & 0xE0) == 0xC0) {
        len = 2;
        cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
        len = 3;
        cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
        len = 4;
        cp = c & 0x07;
    } else {
        return 0;
    }
    if (i + len > bytes.size()) return 0;
    for (std::size_t k = 1; k < len; ++k) {
        const unsigned char cc = static_cast<unsigned char>(bytes[i + k]);
        if ((cc & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (cc & 0x3F);
    }
    if ((len == 2 && cp < 0x80) || (len == 3 && cp < 0x800) || (len == 4 && cp < 0x10000)) return 0;
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    return len;
}

}  // namespace

bool NSStringIsValidUTF8(std::string_view bytes) {
    std::size_t i = 0;
    const std::size_t n = bytes.size();
    while (i < n) {
        // Eight ASCII bytes at a time: most text is ASCII, and log pieces are long.
        if (i + 8 <= n) {
            uint64_t word;
            std::memcpy(&word, bytes.data() + i, 8);
            if ((word & 0x8080808080808080ULL) == 0) {
                i += 8;
                continue;
            }
        }
        if (static_cast<unsigned char>(bytes[i]) < 0x80) {
            ++i;
            continue;
        }
        const std::size_t len = sequenceLength(bytes, i);
        if (len == 0) return false;
        i += len;
    }
    return true;
}

std::optional<std::string> NSStringValue(const id& object) {
    if (auto s = std::dynamic_pointer_cast<NSString>(object)) return s->UTF8String();
    return std::nullopt;
}

std::string NSStringByRepairingUTF8(std::string_view text) {
    if (NSStringIsValidUTF8(text)) return std::string(text);
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t len = static_cast<unsigned char>(text[i]) < 0x80 ? 1 : sequenceLength(text, i);
        if (len == 0) {
            out.append("\xEF\xBF\xBD");
            ++i;
        } else {
            out.append(text.substr(i, len));
            i += len;
        }
    }
    return out;
}

std::string NSStringPrecomposedWithCanonicalMapping(std::string_view utf8) {
    utf8proc_uint8_t* composed = nullptr;
    const utf8proc_ssize_t length =
        utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(utf8.data()), static_cast<utf8proc_ssize_t>(utf8.size()),
                     &composed, static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
    if (length < 0) return std::string(utf8);  // not UTF-8, or no memory for the result
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owned(composed, &std::free);
    return std::string(reinterpret_cast<const char*>(owned.get()), static_cast<std::size_t>(length));
}

}  // namespace platform
