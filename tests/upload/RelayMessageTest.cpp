// Reading relay messages from reply bodies: every malformed body gives fewer messages, never a fault.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
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

// Inputs the fuzzer once found troublesome, and the seeds of the corpus, stay harmless.
TEST(ParseRelayMessagesRegressions, KeptInputsParseWithoutFault) {
    std::size_t replayed = 0;
    for (const char* directory : {QLM_RELAY_REGRESSIONS_DIR, QLM_RELAY_CORPUS_DIR}) {
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            std::ifstream file(entry.path(), std::ios::binary);
            std::stringstream bytes;
            bytes << file.rdbuf();
            const auto messages = parseRelayMessages(platform::NSData::dataWithString(bytes.str()));
            EXPECT_LE(messages.size(), bytes.str().size()) << entry.path();
            ++replayed;
        }
    }
    EXPECT_GT(replayed, 0u);
}

}  // namespace
