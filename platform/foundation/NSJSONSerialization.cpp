#include "platform/foundation/NSJSONSerialization.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"

namespace platform {

namespace {

using json = nlohmann::json;

// Deeper documents are refused rather than risking the stack on the recursive conversions.
constexpr std::size_t kMaxDepth = 512;
constexpr const char* kDebugDescriptionKey = "NSDebugDescription";

std::shared_ptr<NSError> makeError(long code, std::string localized, std::string debug) {
    return NSError::errorWithDomain(
        NSCocoaErrorDomain, code,
        NSDictionary::dictionaryWithStrings(
            {{NSLocalizedDescriptionKey, std::move(localized)}, {kDebugDescriptionKey, std::move(debug)}}));
}

std::shared_ptr<NSError> readError(std::string debug) {
    return makeError(NSPropertyListReadCorruptError,
                     "The data couldn\u2019t be read because it isn\u2019t in the correct format.",
                     std::move(debug));
}

std::shared_ptr<NSError> writeError(std::string debug) {
    return makeError(NSPropertyListWriteInvalidError,
                     "The data couldn\u2019t be written because it isn\u2019t valid.", std::move(debug));
}

// Builds the objects straight from the parser's events, without an intermediate document.
class ObjectBuilder final : public nlohmann::json_sax<json> {
public:
    explicit ObjectBuilder(bool mutableContainers) : mutableContainers_(mutableContainers) {}

    id result() { return std::move(root_); }
    const std::string& failure() const { return failure_; }

    bool null() override { return add(NSNull::null()); }
    bool boolean(bool value) override { return add(NSNumber::numberWithBool(value)); }
    bool number_integer(number_integer_t value) override { return add(NSNumber::numberWithLongLong(value)); }
    bool number_unsigned(number_unsigned_t value) override {
        // Non-negative integers come as unsigned; those that fit stay signed, as the platform's do.
        if (value <= static_cast<number_unsigned_t>(INT64_MAX)) {
            return add(NSNumber::numberWithLongLong(static_cast<int64_t>(value)));
        }
        return add(NSNumber::numberWithUnsignedLongLong(value));
    }
    bool number_float(number_float_t value, const string_t&) override {
        return add(NSNumber::numberWithDouble(value));
    }
    bool string(string_t& value) override { return add(NSStr(std::move(value))); }
    bool binary(binary_t&) override { return fail("binary values are not JSON"); }

    bool start_object(std::size_t) override { return open(true); }
    bool key(string_t& value) override {
        stack_.back().key = NSStr(std::move(value));
        return true;
    }
    bool end_object() override { return close(); }
    bool start_array(std::size_t) override { return open(false); }
    bool end_array() override { return close(); }

    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& ex) override {
        return fail(ex.what());
    }

private:
    struct Container {
        bool isObject;
        std::vector<id> items;
        NSDictionary::Storage entries;
        id key;
    };

    bool fail(std::string why) {
        if (failure_.empty()) failure_ = std::move(why);
        return false;
    }

    bool add(id value) {
        if (stack_.empty()) {
            root_ = std::move(value);
        } else if (Container& top = stack_.back(); top.isObject) {
            top.entries[std::move(top.key)] = std::move(value);  // a repeated key keeps the last value
        } else {
            top.items.push_back(std::move(value));
        }
        return true;
    }

    bool open(bool isObject) {
        if (stack_.size() >= kMaxDepth) return fail("Too many nested arrays or dictionaries.");
        stack_.push_back(Container{isObject, {}, {}, nullptr});
        return true;
    }

    bool close() {
        Container top = std::move(stack_.back());
        stack_.pop_back();
        id made;
        if (top.isObject) {
            if (mutableContainers_) {
                auto dictionary = NSMutableDictionary::dictionary();
                for (auto& [key, value] : top.entries) dictionary->setObjectForKey(value, key);
                made = dictionary;
            } else {
                made = std::make_shared<NSDictionary>(std::move(top.entries));
            }
        } else if (mutableContainers_) {
            auto array = NSMutableArray::array();
            for (auto& item : top.items) array->addObject(std::move(item));
            made = array;
        } else {
            made = std::make_shared<NSArray>(std::move(top.items));
        }
        return add(std::move(made));
    }

    bool mutableContainers_;
    std::vector<Container> stack_;
    id root_;
    std::string failure_;
};

bool isContainer(const id& object) {
    return std::dynamic_pointer_cast<NSArray>(object) || std::dynamic_pointer_cast<NSDictionary>(object);
}

// Writes compact JSON text straight from the objects. Strings, which carry the bulk of what the
// library writes (bodies and console output of any size), are copied run by run between the few
// characters that need an escape. Keys come out in byte order and numbers as nlohmann writes them.
// What escaping adds to each byte of a JSON string: none, one for the short escapes, five for
// \u00XX; with or without escaping '/'.
constexpr std::array<uint8_t, 256> extraLengths(bool escapeSlashes) {
    std::array<uint8_t, 256> lengths{};
    for (int c = 0; c < 0x20; ++c)
        lengths[c] = (c == '\b' || c == '\f' || c == '\n' || c == '\r' || c == '\t') ? 1 : 5;
    lengths['"'] = lengths['\\'] = 1;
    if (escapeSlashes) lengths['/'] = 1;
    return lengths;
}

class TextWriter {
public:
    explicit TextWriter(bool escapeSlashes) : escapeSlashes_(escapeSlashes) {}

    // `depth` counts the containers around `object`, as the reader's limit does. False with
    // `why` set when the object can't be written.
    bool write(const id& object, std::size_t depth, std::string& why) {
        if (!object) {
            why = "Invalid value (nil) in JSON write";
            return false;
        }
        if (auto text = std::dynamic_pointer_cast<NSString>(object))
            return writeString(text->UTF8String(), why);
        if (auto number = std::dynamic_pointer_cast<NSNumber>(object)) return writeNumber(*number, why);
        if (std::dynamic_pointer_cast<NSNull>(object)) {
            out_ += "null";
            return true;
        }
        if (isContainer(object) && depth >= kMaxDepth) {
            why = "Too many nested arrays or dictionaries.";
            return false;
        }
        if (auto array = std::dynamic_pointer_cast<NSArray>(object)) {
            out_ += '[';
            bool first = true;
            for (const id& item : *array) {
                if (!first) out_ += ',';
                first = false;
                if (!write(item, depth + 1, why)) return false;
            }
            out_ += ']';
            return true;
        }
        if (auto dictionary = std::dynamic_pointer_cast<NSDictionary>(object)) {
            // Two keys with the same text keep the later value, as a document would.
            std::map<std::string_view, const id*> ordered;
            for (const auto& [key, value] : *dictionary) {
                auto name = std::dynamic_pointer_cast<NSString>(key);
                if (!name) {
                    why = "Invalid (non-string) key in JSON dictionary";
                    return false;
                }
                ordered.insert_or_assign(std::string_view(name->UTF8String()), &value);
            }
            out_ += '{';
            bool first = true;
            for (const auto& [name, value] : ordered) {
                if (!first) out_ += ',';
                first = false;
                if (!writeString(name, why)) return false;
                out_ += ':';
                if (!write(*value, depth + 1, why)) return false;
            }
            out_ += '}';
            return true;
        }
        why = "Invalid type in JSON write (" + NSStringFromClass(object->objcClass()) + ")";
        return false;
    }

    std::string take() { return std::move(out_); }

private:
    bool writeString(std::string_view text, std::string& why) {
        if (!NSStringIsValidUTF8(text)) {
            why = "Invalid string (not UTF-8) in JSON write";
            return false;
        }
        // Sized once and written in place: a body of a megabyte full of quotes and slashes would
        // otherwise take a call per escape. Clean runs, the bulk of any text, are found eight bytes
        // at a time and copied whole.
        std::size_t escaped = text.size() + 2;
        for (std::size_t i = nextEscape(text, 0); i < text.size(); i = nextEscape(text, i + 1))
            escaped += extraLength(static_cast<unsigned char>(text[i]));
        const std::size_t at = out_.size();
        out_.resize(at + escaped);
        char* to = out_.data() + at;
        *to++ = '"';
        for (std::size_t from = 0; from < text.size();) {
            const std::size_t i = nextEscape(text, from);
            std::memcpy(to, text.data() + from, i - from);
            to += i - from;
            if (i == text.size()) break;
            from = i + 1;
            const char ch = text[i];
            const auto c = static_cast<unsigned char>(ch);
            *to++ = '\\';
            switch (c) {
                case '"':
                case '\\':
                case '/':
                    *to++ = ch;
                    break;
                case '\b':
                    *to++ = 'b';
                    break;
                case '\f':
                    *to++ = 'f';
                    break;
                case '\n':
                    *to++ = 'n';
                    break;
                case '\r':
                    *to++ = 'r';
                    break;
                case '\t':
                    *to++ = 't';
                    break;
                default:
                    static constexpr char kHex[] = "0123456789abcdef";
                    *to++ = 'u';
                    *to++ = '0';
                    *to++ = '0';
                    *to++ = kHex[c >> 4];
                    *to++ = kHex[c & 0xF];
            }
        }
        *to = '"';
        return true;
    }

    // How many bytes the escaped form of `c` adds: none, one for the short escapes, five for \u00XX.
    std::size_t extraLength(unsigned char c) const {
        static constexpr auto kWithSlash = extraLengths(true);
        static constexpr auto kWithoutSlash = extraLengths(false);
        return (escapeSlashes_ ? kWithSlash : kWithoutSlash)[c];
    }

    // The index of the first byte at or after `from` that needs an escape, or text.size().
    std::size_t nextEscape(std::string_view text, std::size_t from) const {
        constexpr uint64_t kOnes = 0x0101010101010101;
        constexpr uint64_t kHighs = 0x8080808080808080;
        // Non-zero when some byte of `word` is below n (n <= 128); exact for "some", which is all
        // that is asked: the word is then searched byte by byte.
        const auto anyBelow = [](uint64_t word, uint64_t n) { return (word - kOnes * n) & ~word & kHighs; };
        const auto anyEqual = [&](uint64_t word, unsigned char c) { return anyBelow(word ^ (kOnes * c), 1); };
        std::size_t i = from;
        for (; i + 8 <= text.size(); i += 8) {
            uint64_t word;
            std::memcpy(&word, text.data() + i, 8);
            if ((anyBelow(word, 0x20) | anyEqual(word, '"') | anyEqual(word, '\\') |
                 (escapeSlashes_ ? anyEqual(word, '/') : 0)) != 0)
                break;
        }
        for (; i < text.size(); ++i)
            if (extraLength(static_cast<unsigned char>(text[i])) != 0) return i;
        return text.size();
    }

    bool writeNumber(const NSNumber& number, std::string& why) {
        const NSNumber::Value& value = number.value();
        json scalar;
        if (auto b = std::get_if<bool>(&value)) {
            scalar = *b;
        } else if (auto i = std::get_if<int64_t>(&value)) {
            scalar = *i;
        } else if (auto u = std::get_if<uint64_t>(&value)) {
            scalar = *u;
        } else {
            const double d = std::get<double>(value);
            if (!std::isfinite(d)) {
                why = std::isnan(d) ? "Invalid number value (NaN) in JSON write"
                                    : "Invalid number value (infinite) in JSON write";
                return false;
            }
            // The platform writes a double with no fraction as an integer: 1.0 gives "1".
            constexpr double kExact = 9007199254740992.0;  // 2^53
            if (d == std::trunc(d) && std::fabs(d) < kExact && !(d == 0 && std::signbit(d))) {
                scalar = static_cast<int64_t>(d);
            } else {
                scalar = d;
            }
        }
        out_ += scalar.dump();
        return true;
    }

    const bool escapeSlashes_;
    std::string out_;
};

}  // namespace

id NSJSONSerialization::JSONObjectWithData(const NSData& data, unsigned long options,
                                           std::shared_ptr<NSError>* error) {
    std::string failure;
    id result;
    try {
        ObjectBuilder builder((options & NSJSONReadingMutableContainers) != 0);
        const char* begin = reinterpret_cast<const char*>(data.bytes());
        if (json::sax_parse(begin, begin + data.length(), &builder)) {
            result = builder.result();
        } else {
            failure = builder.failure().empty() ? "Invalid JSON text." : builder.failure();
        }
    } catch (const std::exception& e) {
        failure = e.what();
    }
    if (result && !(options & NSJSONReadingFragmentsAllowed) && !isContainer(result)) {
        result = nullptr;
        failure = "JSON text did not start with array or object and option to allow fragments not set.";
    }
    if (!result && error != nullptr) *error = readError(failure);
    return result;
}

std::shared_ptr<NSData> NSJSONSerialization::dataWithJSONObject(const id& object, unsigned long options,
                                                                std::shared_ptr<NSError>* error) {
    std::string why;
    std::string text;
    if (!(options & NSJSONWritingFragmentsAllowed) && !isContainer(object)) {
        why = "Invalid top-level type in JSON write";
    } else {
        try {
            TextWriter writer(!(options & NSJSONWritingWithoutEscapingSlashes));
            if (writer.write(object, 0, why)) return NSData::dataWithString(writer.take());
        } catch (const std::exception& e) {
            why = e.what();  // out of memory
        }
    }
    if (error != nullptr) *error = writeError(why);
    return nullptr;
}

bool NSJSONSerialization::isValidJSONObject(const id& object) {
    if (!isContainer(object)) return false;
    try {
        TextWriter writer(true);
        std::string why;
        return writer.write(object, 0, why);
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace platform
