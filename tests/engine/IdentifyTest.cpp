// identify's limits, counted in UTF-8 bytes and in calls, checked on the events the server receives.
#include <gtest/gtest.h>

#include <map>
#include <optional>

#include "tests/engine/EngineTestSupport.h"
#include "tests/support/LogCapture.h"

using namespace quillmere;

namespace {

using Traits = std::map<std::string, std::string>;

struct Sent {
    std::string userID, name, email;
    Traits traits;
};

struct IdentifyCase {
    const char* name;
    std::vector<std::pair<std::string, std::optional<Traits>>> calls;  // after start's anonymous one
    std::vector<Sent> sent;
    std::vector<std::string> logs;
};

std::string repeat(std::string_view piece, std::size_t times) {
    std::string text;
    for (std::size_t i = 0; i < times; ++i) text += piece;
    return text;
}

std::vector<IdentifyCase> cases() {
    const std::string tooLarge = "Quillmere: Too large userID passed to identify() (max 1024 characters)";
    const std::string k128 = repeat("k", 128), k129 = repeat("k", 129);
    IdentifyCase tenCalls{"TheTenthCallWarnsLaterOnesAreDropped",
                          {},
                          {},
                          {"Quillmere: More than 10 identify calls on this page. Ignoring future calls."}};
    for (int i = 1; i <= 12; ++i) tenCalls.calls.push_back({"user-" + std::to_string(i), std::nullopt});
    for (int i = 1; i <= 9; ++i) tenCalls.sent.push_back({"user-" + std::to_string(i), "", "", {}});
    return {
        {"UserIDOf1024BytesPasses1025Drops",
         {{repeat("u", 1024), std::nullopt}, {repeat("v", 1025), std::nullopt}},
         {{repeat("u", 1024), "", "", {}}},
         {tooLarge}},
        {"FourHundredThreeByteCharactersAreOver",
         {{repeat("\xE2\x82\xAC", 400), std::nullopt}},
         {},
         {tooLarge}},
        {"TraitKeysOver128AndValuesOver1024BytesDrop",
         {{"u", Traits{{k128, "a"}, {k129, "b"}, {"email", repeat("e", 1025)}}}},
         {{"u", "", "", {{k128, "a"}}}},
         {"Quillmere: Ignoring large user trait value for key email (max 1024 characters)",
          "Quillmere: Ignoring large user trait key " + k129}},
        {"SpecialKeysFillFieldsOthersStayTraits",
         {{"given", Traits{{"name", "Ada"}, {"email", "a@x.io"}, {"userID", "set"}, {"Name", "kept"}}}},
         {{"set", "Ada", "a@x.io", {{"Name", "kept"}}}},
         {}},
        {"BytesThatAreNotUTF8ArriveRepaired",
         {{"u\xff", Traits{{"plan\xc3", "pro\x80"}}}},
         {{"u\uFFFD", "", "", {{"plan\uFFFD", "pro\uFFFD"}}}},
         {}},
        tenCalls,
    };
}

class IdentifyLimits : public ::testing::TestWithParam<IdentifyCase> {};

TEST_P(IdentifyLimits, SendWhatPassesAndSayWhatWasDropped) {
    const auto& test = GetParam();
    qlm_test::IngestServer server;
    qlm_test::LogCapture log;
    auto core = Core::make(Session::make("app-1"), qlm_test::configurationFor(server));
    ASSERT_TRUE(core);
    core->start();
    for (const auto& [userID, traits] : test.calls) core->identify(userID, traits, false);
    qlm_test::shutDownAndSettle(*core);

    EXPECT_EQ(log.lines(), test.logs);
    const auto events = server.events();
    ASSERT_EQ(events.size(), 2 + test.sent.size());
    for (std::size_t i = 0; i < test.sent.size(); ++i) {
        const auto identify = qlm_test::innerMessage<qm::Identify>(events[2 + i]);
        const auto& expected = test.sent[i];
        EXPECT_EQ(identify.userid(), expected.userID);
        EXPECT_EQ(identify.name(), expected.name);
        EXPECT_EQ(identify.email(), expected.email);
        EXPECT_EQ(Traits(identify.traits().begin(), identify.traits().end()), expected.traits);
        EXPECT_FALSE(identify.isanonymous());
    }
}

INSTANTIATE_TEST_SUITE_P(Table, IdentifyLimits, ::testing::ValuesIn(cases()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
