// Reading relay messages from reply bodies: every malformed body gives fewer messages, never a fault.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "platform/foundation/NSJSONSerialization.h"
#include "upload/RelayMessage.h"

using namespace quillmere;

namespace {

struct RelayCase {
    const char* name;
    std::optional<std::string> body;  // nullopt: no body at all
    std::vector<std::string> data;    // the data of each message read, as compact JSON
};

std::vector<RelayCase> relayCases() {
    const std::string valid = R"({"type":"DASHBOARD_URL","data":{"dashboardURL":"a"}})";
    return {
        {"NoBody", std::nullopt, {}},
        {"NotJSON", "dashboard", {}},
        {"InArrayOrder",
         R"([{"type":"DASHBOARD_URL","data":1},{"data":2,"type":"DASHBOARD_URL"}])",
         {"1", "2"}},
        {"UnknownTypeIsSkipped", R"([{"type":"OTHER","data":1},)" + valid + "]", {R"({"dashboardURL":"a"})"}},
        {"TypeComparedWithCase", R"([{"type":"Dashboard_URL","data":1}])", {}},
        {"MissingDataIsSkipped", R"([{"type":"DASHBOARD_URL"}])", {}},
        {"OneElementThatIsNoObjectEmptiesAll", "[" + valid + ",5]", {}},
        {"InvalidUTF8", "[{\"type\":\"DASHBOARD_URL\",\"data\":\"\xC3\x28\"}]", {}},
        {"NestedTooDeep", std::string(600, '[') + std::string(600, ']'), {}},
    };
}

class ParseRelayMessages : public ::testing::TestWithParam<RelayCase> {};

TEST_P(ParseRelayMessages, KeepsWellFormedMessagesInOrder) {
    const auto& body = GetParam().body;
    std::vector<std::string> data;
    for (const auto& message : parseRelayMessages(body ? platform::NSData::dataWithString(*body) : nullptr)) {
        EXPECT_EQ(message.type(), RelayType::dashboardURL);
        const auto json = platform::NSJSONSerialization::dataWithJSONObject(
            message.data(), platform::NSJSONWritingFragmentsAllowed, nullptr);
        data.push_back(json ? json->string() : "<not JSON>");
    }
    EXPECT_EQ(data, GetParam().data);
}

INSTANTIATE_TEST_SUITE_P(Table, ParseRelayMessages, ::testing::ValuesIn(relayCases()),
                         [](const auto& info) { return std::string(info.param.name); });

// "data as compact JSON -> the dashboard address it relays, or -" for one message read.
std::string outcomeOf(const RelayMessage& message) {
    const auto json = platform::NSJSONSerialization::dataWithJSONObject(
        message.data(), platform::NSJSONWritingFragmentsAllowed, nullptr);
    return (json ? json->string() : "<not JSON>") + " -> " + message.dashboardURL().value_or("-");
}

// Inputs the fuzzer once found troublesome, and the seeds of the corpus, each with what it must
// give. A file kept without an expectation here fails the test.
TEST(ParseRelayMessagesRegressions, EachKeptInputGivesItsExpectedMessages) {
    const std::map<std::string, std::vector<std::string>> expected = {
        {"deep-objects", {}},
        {"deep-unclosed", {}},
        {"huge-number", {}},
        {"lone-surrogate", {}},
        {"nul-in-key", {}},
        {"address-not-string", {R"({"dashboardURL":5} -> -)"}},
        // Slashes come back escaped, as the platform's JSON writer writes them.
        {"dashboard-url", {R"({"dashboardURL":"https:\/\/dash.example\/board"} -> https://dash.example/board)"}},
        {"empty-array", {}},
        {"mixed-kinds", {R"([1,2,{"x":true}] -> -)"}},
        {"object-top-level", {}},
        {"two-messages", {R"({"dashboardURL":"a"} -> a)", R"({"dashboardURL":"b","region":"eu"} -> b)"}},
        {"unicode-escapes", {"\"\xC3\xA9\xF0\x9F\x98\x80\" -> -"}},
    };
    std::set<std::string> replayed;
    for (const char* directory : {QLM_RELAY_REGRESSIONS_DIR, QLM_RELAY_CORPUS_DIR}) {
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            const std::string name = entry.path().filename().string();
            SCOPED_TRACE(name);
            std::ifstream file(entry.path(), std::ios::binary);
            std::stringstream bytes;
            bytes << file.rdbuf();
            std::vector<std::string> outcomes;
            for (const auto& message : parseRelayMessages(platform::NSData::dataWithString(bytes.str())))
                outcomes.push_back(outcomeOf(message));
            const auto it = expected.find(name);
            ASSERT_NE(it, expected.end()) << "a kept input with no expected outcome";
            EXPECT_EQ(outcomes, it->second);
            replayed.insert(name);
        }
    }
    EXPECT_EQ(replayed.size(), expected.size());
}

}  // namespace
