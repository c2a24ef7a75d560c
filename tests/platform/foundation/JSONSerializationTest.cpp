// JSON reading and writing: the object types the library's payloads are made of, the platform's
// rejections, and the exact compact text it writes.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

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

std::string write(const id& object, unsigned long options = 0) {
    std::shared_ptr<NSError> error;
    auto data = NSJSONSerialization::dataWithJSONObject(object, options, &error);
    EXPECT_NE(data, nullptr) << (error ? error->description() : "no error");
    return data ? data->string() : "";
}

std::shared_ptr<NSArray> arrayOf(std::initializer_list<id> items) {
    return NSArray::arrayWithObjects(items);
}
std::shared_ptr<NSDictionary> dictOf(std::vector<std::pair<id, id>> pairs) {
    return NSDictionary::dictionaryWithObjectsForKeys(std::move(pairs));
}

TEST(NSJSONSerialization, ReadsEachValueAsItsObjectType) {
    auto root = objc_cast<NSDictionary>(parse(R"({"a":[1,true,null,"x",-2.5]})"));
    ASSERT_NE(root, nullptr);
    auto a = objc_cast<NSArray>(root->objectForKey(std::string("a")));
    ASSERT_NE(a, nullptr);
    ASSERT_EQ(a->count(), 5u);

    auto one = objc_cast<NSNumber>(a->objectAtIndex(0));
    ASSERT_NE(one, nullptr);
    EXPECT_FALSE(one->isBool()) << "1 is a number, not true";
    EXPECT_EQ(one->value(), NSNumber::Value(int64_t{1}));
    auto yes = objc_cast<NSNumber>(a->objectAtIndex(1));
    ASSERT_NE(yes, nullptr);
    EXPECT_EQ(yes->value(), NSNumber::Value(true));
    EXPECT_NE(objc_cast<NSNull>(a->objectAtIndex(2)), nullptr);
    EXPECT_EQ(NSStringValue(a->objectAtIndex(3)), "x");
    auto real = objc_cast<NSNumber>(a->objectAtIndex(4));
    ASSERT_NE(real, nullptr);
    EXPECT_EQ(real->value(), NSNumber::Value(-2.5));

    EXPECT_EQ(write(root), R"({"a":[1,true,null,"x",-2.5]})");
}

struct NumberCase {
    const char* text;
    NSNumber::Value value;
};
void PrintTo(const NumberCase& c, std::ostream* os) {
    *os << c.text;
}

class JSONNumbers : public ::testing::TestWithParam<NumberCase> {};

TEST_P(JSONNumbers, KeepTheirKindAndValueBothWays) {
    const std::string text = std::string("[") + GetParam().text + "]";
    auto array = objc_cast<NSArray>(parse(text));
    ASSERT_NE(array, nullptr) << text;
    auto number = objc_cast<NSNumber>(array->objectAtIndex(0));
    ASSERT_NE(number, nullptr);
    EXPECT_EQ(number->value(), GetParam().value) << text;
    EXPECT_EQ(write(array), text);
}

INSTANTIATE_TEST_SUITE_P(
    Table, JSONNumbers,
    ::testing::Values(NumberCase{"0", int64_t{0}}, NumberCase{"-1", int64_t{-1}},
                      NumberCase{"9223372036854775807", std::numeric_limits<int64_t>::max()},
                      NumberCase{"-9223372036854775808", std::numeric_limits<int64_t>::min()},
                      NumberCase{"18446744073709551615", std::numeric_limits<uint64_t>::max()},
                      NumberCase{"0.1", 0.1}, NumberCase{"1.5e+300", 1.5e300}, NumberCase{"false", false}));

TEST(NSJSONSerialization, WritesDoublesWithoutAFractionAsIntegers) {
    EXPECT_EQ(write(arrayOf({NSNumber::numberWithDouble(1.0), NSNumber::numberWithDouble(-3.0),
                             NSNumber::numberWithDouble(0.25)})),
              "[1,-3,0.25]");
}

struct TextCase {
    const char* label;
    std::string value;
    unsigned long options;
    std::string written;  // the string as it appears in the text, quotes included
};
void PrintTo(const TextCase& c, std::ostream* os) {
    *os << c.label;
}

class JSONStrings : public ::testing::TestWithParam<TextCase> {};

TEST_P(JSONStrings, WriteAsThePlatformDoesAndReadBack) {
    const TextCase& c = GetParam();
    const std::string text = write(dictOf({{NSStr("k"), NSStr(c.value)}}), c.options);
    EXPECT_EQ(text, "{\"k\":" + c.written + "}");
    auto back = objc_cast<NSDictionary>(parse(text));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(NSStringValue(back->objectForKey(std::string("k"))), c.value);
}

INSTANTIATE_TEST_SUITE_P(
    Table, JSONStrings,
    ::testing::Values(TextCase{"Slash", "https://a/b", 0, R"("https:\/\/a\/b")"},
                      TextCase{"SlashUnescaped", "a/b", NSJSONWritingWithoutEscapingSlashes, R"("a/b")"},
                      TextCase{"NonAsciiRaw", "caf\u00e9 \u65e5\u672c \U0001F600", 0,
                               "\"caf\u00e9 \u65e5\u672c \U0001F600\""},
                      TextCase{"ControlEscaped", std::string("l1\nl2\t\x01\x1f", 8), 0,
                               R"("l1\nl2\t\u0001\u001f")"},
                      TextCase{"QuoteAndBackslash", "say \"hi\" \\", 0, R"("say \"hi\" \\")"},
                      TextCase{"EmbeddedNul", std::string("a\0b", 3), 0, R"("a\u0000b")"}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(NSJSONSerialization, ReadsEscapesAndSurrogatePairs) {
    auto array = objc_cast<NSArray>(parse(R"(["\u00e9\ud83d\ude00\/\"\\\b\f\n\r\t"])"));
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(NSStringValue(array->objectAtIndex(0)), "\u00e9\U0001F600/\"\\\b\f\n\r\t");
}

TEST(NSJSONSerialization, NestedDocumentsRoundTrip) {
    auto document = dictOf({
        {NSStr("events"), arrayOf({dictOf({{NSStr("t"), NSNumber::numberWithLongLong(1700000000123)},
                                           {NSStr("kind"), NSStr("tap")},
                                           {NSStr("xy"), arrayOf({NSNumber::numberWithDouble(10.5),
                                                                  NSNumber::numberWithLongLong(-3)})}}),
                                   arrayOf({}), dictOf({})})},
        {NSStr("ok"), NSNumber::numberWithBool(true)},
        {NSStr("none"), NSNull::null()},
    });
    auto data = NSJSONSerialization::dataWithJSONObject(document, 0, nullptr);
    ASSERT_NE(data, nullptr);
    auto back = NSJSONSerialization::JSONObjectWithData(*data, 0, nullptr);
    ASSERT_NE(back, nullptr);
    EXPECT_TRUE(back->isEqual(document.get())) << data->string();
    EXPECT_EQ(data->string().find(' '), std::string::npos) << "compact text has no spaces";
}

TEST(NSJSONSerialization, MutableContainersOptionGivesMutableContainers) {
    auto root = parse(R"({"a":[1]})", NSJSONReadingMutableContainers);
    auto dictionary = objc_cast<NSMutableDictionary>(root);
    ASSERT_NE(dictionary, nullptr);
    EXPECT_NE(objc_cast<NSMutableArray>(dictionary->objectForKey(std::string("a"))), nullptr);
    EXPECT_EQ(objc_cast<NSMutableDictionary>(parse(R"({"a":[1]})")), nullptr);
}

struct ReadRejection {
    const char* label;
    std::string text;
    bool acceptedAsFragment;
};
void PrintTo(const ReadRejection& c, std::ostream* os) {
    *os << c.label;
}

class JSONReadRejections : public ::testing::TestWithParam<ReadRejection> {};

TEST_P(JSONReadRejections, GiveNilAndACocoaError) {
    const ReadRejection& c = GetParam();
    std::shared_ptr<NSError> error;
    EXPECT_EQ(parse(c.text, 0, &error), nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain(), NSCocoaErrorDomain);
    EXPECT_EQ(error->code(), 3840);
    EXPECT_EQ(parse(c.text, 0, nullptr), nullptr) << "no error out-parameter is fine";

    std::shared_ptr<NSError> fragmentError;
    const bool accepted = parse(c.text, NSJSONReadingFragmentsAllowed, &fragmentError) != nullptr;
    EXPECT_EQ(accepted, c.acceptedAsFragment);
    EXPECT_EQ(fragmentError == nullptr, c.acceptedAsFragment);
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

struct WriteRejection {
    const char* label;
    std::function<id()> make;
    bool acceptedAsFragment;
};
void PrintTo(const WriteRejection& c, std::ostream* os) {
    *os << c.label;
}

class JSONWriteRejections : public ::testing::TestWithParam<WriteRejection> {};

TEST_P(JSONWriteRejections, GiveNilAndAnErrorInsteadOfRaising) {
    const WriteRejection& c = GetParam();
    const id object = c.make();
    EXPECT_FALSE(NSJSONSerialization::isValidJSONObject(object));
    std::shared_ptr<NSError> error;
    EXPECT_EQ(NSJSONSerialization::dataWithJSONObject(object, 0, &error), nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain(), NSCocoaErrorDomain);
    EXPECT_EQ(NSJSONSerialization::dataWithJSONObject(object, 0, nullptr), nullptr);
    EXPECT_EQ(
        NSJSONSerialization::dataWithJSONObject(object, NSJSONWritingFragmentsAllowed, nullptr) != nullptr,
        c.acceptedAsFragment);
}

id deeplyNested(int depth) {
    id inner = arrayOf({});
    for (int i = 1; i < depth; ++i) inner = arrayOf({inner});
    return inner;
}

INSTANTIATE_TEST_SUITE_P(
    Table, JSONWriteRejections,
    ::testing::Values(
        WriteRejection{"Nil", [] { return id(); }, false},
        WriteRejection{"TopLevelString", [] { return id(NSStr("x")); }, true},
        WriteRejection{"TopLevelNumber", [] { return id(NSNumber::numberWithLongLong(1)); }, true},
        WriteRejection{"TopLevelNull", [] { return id(NSNull::null()); }, true},
        WriteRejection{"NumberKey",
                       [] {
                           return id(dictOf({{NSNumber::numberWithLongLong(1), NSStr("v")}}));
                       },
                       false},
        WriteRejection{"NaN", [] { return id(arrayOf({NSNumber::numberWithDouble(std::nan(""))})); }, false},
        WriteRejection{
            "Infinity",
            [] { return id(arrayOf({NSNumber::numberWithDouble(std::numeric_limits<double>::infinity())})); },
            false},
        WriteRejection{"OtherClass", [] { return id(arrayOf({NSDate::date()})); }, false},
        WriteRejection{"NilElement",
                       [] {
                           return id(arrayOf({NSStr("a"), nullptr}));
                       },
                       false},
        WriteRejection{
            "NestedBadValue",
            [] {
                return id(dictOf({{NSStr("a"), arrayOf({dictOf({{NSStr("b"), NSDate::date()}})})}}));
            },
            false},
        WriteRejection{"TooDeep", [] { return deeplyNested(600); }, false}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(NSJSONSerialization, DeepButAllowedNestingWorksBothWays) {
    const id nested = deeplyNested(500);
    EXPECT_TRUE(NSJSONSerialization::isValidJSONObject(nested));
    const std::string text = write(nested);
    EXPECT_EQ(text, std::string(500, '[') + std::string(500, ']'));
    EXPECT_NE(parse(text), nullptr);
}

}  // namespace
