#include "platform/foundation/NSJSONSerialization.h"

#include <cmath>
#include <cstdint>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>
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

// `depth` counts the containers around `object`, as the reader's limit does.

// The document for `object`, or false with `why` set.
bool toJSON(const id& object, std::size_t depth, json& out, std::string& why) {
    if (!object) {
        why = "Invalid value (nil) in JSON write";
        return false;
    }
    if (auto text = std::dynamic_pointer_cast<NSString>(object)) {
        out = text->UTF8String();
        return true;
    }
    if (auto number = std::dynamic_pointer_cast<NSNumber>(object)) {
        const NSNumber::Value& value = number->value();
        if (auto b = std::get_if<bool>(&value)) {
            out = *b;
        } else if (auto i = std::get_if<int64_t>(&value)) {
            out = *i;
        } else if (auto u = std::get_if<uint64_t>(&value)) {
            out = *u;
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
                out = static_cast<int64_t>(d);
            } else {
                out = d;
            }
        }
        return true;
    }
    if (std::dynamic_pointer_cast<NSNull>(object)) {
        out = nullptr;
        return true;
    }
    if (isContainer(object) && depth >= kMaxDepth) {
        why = "Too many nested arrays or dictionaries.";
        return false;
    }
    if (auto array = std::dynamic_pointer_cast<NSArray>(object)) {
        out = json::array();
        for (const id& item : *array) {
            json element;
            if (!toJSON(item, depth + 1, element, why)) return false;
            out.push_back(std::move(element));
        }
        return true;
    }
    if (auto dictionary = std::dynamic_pointer_cast<NSDictionary>(object)) {
        out = json::object();
        for (const auto& [key, value] : *dictionary) {
            auto name = std::dynamic_pointer_cast<NSString>(key);
            if (!name) {
                why = "Invalid (non-string) key in JSON dictionary";
                return false;
            }
            json element;
            if (!toJSON(value, depth + 1, element, why)) return false;
            out[name->UTF8String()] = std::move(element);
        }
        return true;
    }
    why = "Invalid type in JSON write (" + NSStringFromClass(object->objcClass()) + ")";
    return false;
}

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
            json document;
            if (toJSON(object, 0, document, why)) {
                text = document.dump(-1, ' ', false, json::error_handler_t::strict);
                if (!(options & NSJSONWritingWithoutEscapingSlashes)) {
                    // A "/" can only occur inside a string in the compact text. Whole runs
                    // between slashes are copied at once: log pieces are long and have few.
                    if (std::size_t slash = text.find('/'); slash != std::string::npos) {
                        std::string escaped;
                        escaped.reserve(text.size() + text.size() / 16);
                        std::size_t from = 0;
                        for (; slash != std::string::npos; slash = text.find('/', from)) {
                            escaped.append(text, from, slash - from).append("\\/");
                            from = slash + 1;
                        }
                        escaped.append(text, from, std::string::npos);
                        text = std::move(escaped);
                    }
                }
                return NSData::dataWithString(text);
            }
        } catch (const std::exception& e) {
            why = e.what();  // a string that is not UTF-8, or out of memory
        }
    }
    if (error != nullptr) *error = writeError(why);
    return nullptr;
}

bool NSJSONSerialization::isValidJSONObject(const id& object) {
    if (!isContainer(object)) return false;
    try {
        json document;
        std::string why;
        return toJSON(object, 0, document, why);
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace platform
