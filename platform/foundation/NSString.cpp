#include "platform/foundation/NSString.h"

#include <cstdint>
#include <cstring>
#include <functional>

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
    for (unsigned char c : bytes) {
        if (c > 0x7F) return false;
    }
    return true;
}

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
        const unsigned char c = static_cast<unsigned char>(bytes[i]);
        if (c < 0x80) {
            ++i;
            continue;
        }
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
            return false;
        }
        if (i + len > n) return false;
        for (std::size_t k = 1; k < len; ++k) {
            const unsigned char cc = static_cast<unsigned char>(bytes[i + k]);
            if ((cc & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (cc & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
        if ((len == 2 && cp < 0x80) || (len == 3 && cp < 0x800) || (len == 4 && cp < 0x10000)) return false;
        if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
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
    const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    for (std::size_t i = 0; i < text.size();) {
        const unsigned char lead = byte(i);
        if (lead < 0x80) {
            out.push_back(static_cast<char>(lead));
            ++i;
            continue;
        }
        std::size_t length = 0;
        char32_t min = 0;
        if ((lead & 0xE0) == 0xC0) {
            length = 2, min = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3, min = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4, min = 0x10000;
        }
        bool ok = length != 0 && i + length <= text.size();
        char32_t cp = length == 0 ? 0 : lead & (0x7F >> length);
        for (std::size_t k = 1; ok && k < length; ++k) {
            ok = (byte(i + k) & 0xC0) == 0x80;
            cp = (cp << 6) | (byte(i + k) & 0x3F);
        }
        ok = ok && cp >= min && cp <= 0x10FFFF && !(cp >= 0xD800 && cp <= 0xDFFF);
        if (ok) {
            out.append(text.substr(i, length));
            i += length;
        } else {
            out.append("\xEF\xBF\xBD");
            ++i;
        }
    }
    return out;
}

}  // namespace platform
