// JSON reading and writing: the object types the library's payloads are made of, the platform's
// rejections, and the exact compact text it writes.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSJSONSerialization.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"

using namespace platform;

namespace {

id parse(std::string_view text, unsigned long options = 0, std::shared_ptr<NSError>* error = nullptr) {
    return NSJSONSerialization::JSONObjectWithData(*NSData::dataWithString(text), options, error);
}

std::string write(const id& object) {
    auto data = NSJSONSerialization::dataWithJSONObject(object, 0, nullptr);
    EXPECT_NE(data, nullptr);
    return data ? data->string() : "";
}

id number(NSNumber::Value value) {
    return std::make_shared<NSNumber>(value);
}
id arrayOf(std::initializer_list<id> items) {
    return NSArray::arrayWithObjects(items);
}
id dictOf(std::vector<std::pair<id, id>> pairs) {
    return NSDictionary::dictionaryWithObjectsForKeys(std::move(pairs));
}

TEST(NSJSONSerialization, ReadsEachValueAsItsTypeAndWritesItBackTheSame) {
    const std::pair<const char*, id> cases[] = {
        {"1", number(int64_t{1})},  // a number, not true
        {"true", number(true)},
        {"false", number(false)},
        {"-2.5", number(-2.5)},
        {"0.1", number(0.1)},
        {"1.5e+300", number(1.5e300)},
        {"9223372036854775807", number(std::numeric_limits<int64_t>::max())},
        {"-9223372036854775808", number(std::numeric_limits<int64_t>::min())},
        {"18446744073709551615", number(std::numeric_limits<uint64_t>::max())},
        {"null", NSNull::null()},
        {"\"x\"", NSStr("x")},
        {R"({"k":[1,{}]})", dictOf({{NSStr("k"), arrayOf({number(int64_t{1}), dictOf({})})}})},
    };
    for (const auto& [text, expected] : cases) {
        const std::string document = std::string("[") + text + "]";
        auto array = objc_cast<NSArray>(parse(document));
        ASSERT_NE(array, nullptr) << text;
        const id read = array->objectAtIndex(0);
        if (auto expectedNumber = objc_cast<NSNumber>(expected)) {
            auto readNumber = objc_cast<NSNumber>(read);
            ASSERT_NE(readNumber, nullptr) << text;
            EXPECT_EQ(readNumber->value(), expectedNumber->value()) << text;
        } else {
            EXPECT_TRUE(NSObjectsEqual(read, expected)) << text;
        }
        EXPECT_EQ(write(array), document);
    }
    EXPECT_EQ(write(NSArray::arrayWithObjects({number(1.0), number(-3.0)})), "[1,-3]");
}

TEST(NSJSONSerialization, EscapesStringsAsThePlatformDoesAndReadsThemBack) {
    const std::pair<std::string, std::string> cases[] = {
        {"https://a/b", R"("https:\/\/a\/b")"},
        {"caf\u00e9 \u65e5\u672c \U0001F600", "\"caf\u00e9 \u65e5\u672c \U0001F600\""},
        {std::string("l1\nl2\t\x01\x1f", 8), R"("l1\nl2\t\u0001\u001f")"},
        {"say \"hi\" \\", R"("say \"hi\" \\")"},
        {std::string("a\0b", 3), R"("a\u0000b")"},
    };
    for (const auto& [value, written] : cases) {
        const std::string text = write(dictOf({{NSStr("k"), NSStr(value)}}));
        EXPECT_EQ(text, "{\"k\":" + written + "}");
        auto back = objc_cast<NSDictionary>(parse(text));
        ASSERT_NE(back, nullptr) << text;
        EXPECT_EQ(NSStringValue(back->objectForKey(std::string("k"))), value);
    }
    // Each escape at each place in and across words of eight bytes, among bytes that need none.
    const std::string around = "\u00e9abcdefghijklmnop~\x7f";
    const std::pair<char, std::string> escaped[] = {
        {'"', R"(\")"}, {'\\', R"(\\)"}, {'/', R"(\/)"}, {'\n', R"(\n)"}, {'\x1f', R"(\u001f)"}, {'\0', R"(\u0000)"}};
    for (const auto& [ch, escape] : escaped) {
        for (std::size_t at = 2; at <= around.size(); ++at) {
            const std::string head = around.substr(0, at), tail = around.substr(at);
            EXPECT_EQ(write(NSArray::arrayWithObjects({NSStr(head + ch + tail)})),
                      "[\"" + head + escape + tail + "\"]")
                << at;
        }
    }
    auto escapes = objc_cast<NSArray>(parse(R"(["\u00e9\ud83d\ude00\/\"\\\b\f\n\r\t"])"));
    ASSERT_NE(escapes, nullptr);
    EXPECT_EQ(NSStringValue(escapes->objectAtIndex(0)), "\u00e9\U0001F600/\"\\\b\f\n\r\t");
}

struct ReadRejection {
    const char* label;
    std::string text;
    bool acceptedAsFragment;
};

class JSONReadRejections : public ::testing::TestWithParam<ReadRejection> {};

TEST_P(JSONReadRejections, GiveNilAndACocoaError) {
    const ReadRejection& c = GetParam();
    std::shared_ptr<NSError> error;
    EXPECT_EQ(parse(c.text, 0, &error), nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain(), NSCocoaErrorDomain);
    EXPECT_EQ(error->code(), 3840);
    EXPECT_EQ(parse(c.text, 0, nullptr), nullptr) << "no error out-parameter is fine";
    EXPECT_EQ(parse(c.text, NSJSONReadingFragmentsAllowed) != nullptr, c.acceptedAsFragment);
}

INSTANTIATE_TEST_SUITE_P(
    Table, JSONReadRejections,
    ::testing::Values(ReadRejection{"Empty", "", false}, ReadRejection{"Whitespace", "  \n", false},
                      ReadRejection{"BareString", R"("text")", true}, ReadRejection{"BareNumber", "42", true},
                      ReadRejection{"BareNull", "null", true}, ReadRejection{"BareTrue", "true", true},
                      ReadRejection{"Unterminated", R"({"a":1)", false},
                      ReadRejection{"TrailingComma", "[1,]", false},
                      ReadRejection{"SingleQuotes", "{'a':1}", false},
                      ReadRejection{"TrailingGarbage", "[1] x", false},
                      ReadRejection{"NonStringKey", "{1:2}", false}, ReadRejection{"NaN", "[NaN]", false},
                      ReadRejection{"InvalidUtf8", "[\"\xff\"]", false},
                      ReadRejection{"TruncatedUtf8", "[\"\xc3\"]", false},
                      ReadRejection{"RawControlCharacter", "[\"a\nb\"]", false},
                      ReadRejection{"LoneSurrogate", R"(["\ud800"])", false},
                      ReadRejection{"TooDeep", std::string(600, '[') + std::string(600, ']'), false}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(NSJSONSerialization, WriteRejectionsGiveNilAndAnErrorInsteadOfRaising) {
    id deep = arrayOf({});
    for (int i = 1; i < 600; ++i) deep = arrayOf({deep});
    const std::tuple<const char*, id, bool> cases[] = {
        // label, object, accepted as a fragment
        {"Nil", nullptr, false},
        {"TopLevelString", NSStr("x"), true},
        {"NumberKey", dictOf({{number(int64_t{1}), NSStr("v")}}), false},
        {"NaN", arrayOf({number(std::nan(""))}), false},
        {"Infinity", arrayOf({number(std::numeric_limits<double>::infinity())}), false},
        {"OtherClass", arrayOf({NSDate::date()}), false},
        {"NotUTF8", arrayOf({NSStr("ok \xc3(")}), false},
        {"NotUTF8Key", dictOf({{NSStr("\xff"), NSStr("v")}}), false},
        {"NilElement", arrayOf({NSStr("a"), nullptr}), false},
        {"NestedBadValue", dictOf({{NSStr("a"), arrayOf({dictOf({{NSStr("b"), NSDate::date()}})})}}), false},
        {"TooDeep", deep, false},
    };
    for (const auto& [label, object, acceptedAsFragment] : cases) {
        EXPECT_FALSE(NSJSONSerialization::isValidJSONObject(object)) << label;
        std::shared_ptr<NSError> error;
        EXPECT_EQ(NSJSONSerialization::dataWithJSONObject(object, 0, &error), nullptr) << label;
        ASSERT_NE(error, nullptr) << label;
        EXPECT_EQ(error->domain(), NSCocoaErrorDomain) << label;
        EXPECT_EQ(NSJSONSerialization::dataWithJSONObject(object, 0, nullptr), nullptr) << label;
        EXPECT_EQ(NSJSONSerialization::dataWithJSONObject(object, NSJSONWritingFragmentsAllowed, nullptr) !=
                      nullptr,
                  acceptedAsFragment)
            << label;
    }
}

}  // namespace
