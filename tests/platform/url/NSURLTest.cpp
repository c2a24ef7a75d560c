#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "platform/url/NSURL.h"

namespace {

using platform::NSURL;

struct ValidityCase {
    std::string text;
    bool valid;
};

void PrintTo(const ValidityCase& c, std::ostream* os) {
    *os << '"' << c.text << '"';
}

class NSURLValidity : public ::testing::TestWithParam<ValidityCase> {};

TEST_P(NSURLValidity, AcceptsExactlyTheValidTexts) {
    const auto& c = GetParam();
    auto url = NSURL::URLWithString(c.text);
    EXPECT_EQ(url != nullptr, c.valid) << c.text;
    if (url) {
        EXPECT_EQ(url->absoluteString(), c.text) << "the text is kept as given";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, NSURLValidity,
    ::testing::Values(
        ValidityCase{"https://example.com/v1/ingest?x=1#top", true},
        ValidityCase{"http://127.0.0.1:8080/", true}, ValidityCase{"http://[::1]:80/a", true},
        ValidityCase{"http://example.com/a%20b", true}, ValidityCase{"mailto:someone@example.com", true},
        ValidityCase{"relative/path?q=1", true}, ValidityCase{"http://user:pw@example.com/", true},
        ValidityCase{"", false}, ValidityCase{"http://example.com/a b", false},
        ValidityCase{" http://example.com", false}, ValidityCase{"http://example.com/%zz", false},
        ValidityCase{"http://example.com/%4", false}, ValidityCase{"http://example.com/\"q\"", false},
        ValidityCase{"http://example.com/<tag>", false}, ValidityCase{"http://example.com/a|b", false},
        ValidityCase{"http://example.com/{x}", false}, ValidityCase{"http://example.com/caf\xC3\xA9", false},
        ValidityCase{"http://example.com/a#b#c", false}, ValidityCase{"http://example.com/[x]", false},
        ValidityCase{"http://example.com:99999/", false}, ValidityCase{"http://", false}));

TEST(NSURL, ReportsItsParts) {
    auto url = NSURL::URLWithString("HTTPS://Example.com:8443/a/b%20c/?k=v&w=1#frag");
    ASSERT_TRUE(url);
    EXPECT_EQ(url->scheme(), "https");
    EXPECT_EQ(url->host(), "Example.com");
    EXPECT_EQ(url->port(), 8443);
    EXPECT_EQ(url->path(), "/a/b c") << "decoded, without the trailing slash";
    EXPECT_EQ(url->query(), "k=v&w=1");
    EXPECT_EQ(url->fragment(), "frag");

    auto bare = NSURL::URLWithString("http://example.com");
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->port(), std::nullopt);
    EXPECT_EQ(bare->path(), "");
    EXPECT_EQ(bare->query(), std::nullopt);

    auto literal = NSURL::URLWithString("http://[::1]:9/");
    ASSERT_TRUE(literal);
    EXPECT_EQ(literal->host(), "::1");
    EXPECT_EQ(literal->path(), "/");
}

struct ResolutionCase {
    std::string relative;
    std::string expected;
};

void PrintTo(const ResolutionCase& c, std::ostream* os) {
    *os << '"' << c.relative << '"';
}

class NSURLResolution : public ::testing::TestWithParam<ResolutionCase> {};

TEST_P(NSURLResolution, ResolvesAgainstTheBase) {
    auto base = NSURL::URLWithString("http://a.example/b/c/d?q=1");
    auto url = NSURL::URLWithString(GetParam().relative, base);
    ASSERT_TRUE(url) << GetParam().relative;
    EXPECT_EQ(url->absoluteString(), GetParam().expected);
    EXPECT_EQ(url->relativeString(), GetParam().relative);
    EXPECT_EQ(url->baseURL(), base);
}

INSTANTIATE_TEST_SUITE_P(Relatives, NSURLResolution,
                         ::testing::Values(ResolutionCase{"../e", "http://a.example/b/e"},
                                           ResolutionCase{"/top", "http://a.example/top"},
                                           ResolutionCase{"?q=2", "http://a.example/b/c/d?q=2"},
                                           ResolutionCase{"//other.example/z", "http://other.example/z"},
                                           ResolutionCase{"https://x.example/", "https://x.example/"}));

TEST(NSURL, RejectsAnInvalidRelativeText) {
    EXPECT_EQ(NSURL::URLWithString("a b", NSURL::URLWithString("http://a.example/")), nullptr);
}

}  // namespace
