// Finding recordings: the words the index holds, and sessions the library's own encoders made,
// uploaded to a real server, then searched and filtered through the listing as a person would.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "examples/demo-host/TouchScript.h"
#include "server/search/SearchWords.h"
#include "tests/server/ServerHarness.h"
#include "wire/qm_network.pb.h"

namespace qlm_test {
namespace {

using nlohmann::json;
using qlm::ingest::searchWords;

TEST(SearchWordsTest, FoldsAndSplitsTheWayBothStoresAreHandedThem) {
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"Card FROZEN, card frozen!", {"card", "frozen"}},
        {"Café crème", {"cafe", "creme"}},
        {"\xEF\xAC\x81le \xE2\x84\x96"
         "5",
         {"file", "no5"}},  // a ligature and the numero sign
        {"GET /api/cart?sku=TEA-1_green", {"get", "api", "cart", "sku", "tea", "1", "green"}},
        {"ab\xFF"
         "cd\xC3",
         {"ab", "cd"}},
        {std::string(65, 'x') + " ok", {"ok"}},
    };
    for (const auto& [text, words] : cases) EXPECT_EQ(searchWords(text, 100), words) << text;
    EXPECT_EQ(searchWords("one two three", 2), (std::vector<std::string>{"one", "two"}));
}

qm::Identify user(const std::string& id, const std::string& plan) {
    qm::Identify identify;
    identify.set_userid(id);
    (*identify.mutable_traits())["plan"] = plan;
    return identify;
}

class ListingTest : public testing::Test {
protected:
    void SetUp() override {
        qm::network::RequestEvent request;
        request.set_reqid("ios-0");
        request.set_url("http://api.test/api/cart");
        qm::network::ResponseEvent failed;
        failed.set_reqid("ios-0");
        failed.set_status(503);
        // The demo's sign-in screen: its password typed into the secure field.
        const std::vector<qm::Event> signIn = {
            eventAt(0, 0, user("user-42", "pro")),
            eventAt(1, 999.6, capturedScreen("Card frozen", demo::TouchScript::kPassword)),
            eventAt(2, 1500, capturedOutput("demo: synced the cart\n")), eventAt(3, 2000, request),
            eventAt(4, 2500, failed)};
        ASSERT_EQ(post(server.ingestURL("rec-1"), encodeBatch(signIn)).status, 201);
        const std::vector<qm::Event> statement = {eventAt(0, 0, user("bob", "free")),
                                                  eventAt(1, 700, capturedScreen("Statement ready"))};
        ASSERT_EQ(post(server.ingestURL("rec-2"), encodeBatch(statement)).status, 201);
    }

    // recordingID -> the times of its moments, newest recording first.
    std::vector<std::pair<std::string, std::vector<double>>> found(const std::string& query) {
        const Reply reply = get(server.url("/recordings.json" + query));
        EXPECT_EQ(reply.status, 200) << query << ": " << reply.body;
        std::vector<std::pair<std::string, std::vector<double>>> out;
        const json document = json::parse(reply.body);
        for (const json& recording : document["recordings"]) {
            std::vector<double> times;
            for (const json& moment : recording["moments"]) times.push_back(moment["t"]);
            out.emplace_back(recording["recordingID"], times);
        }
        return out;
    }

    RunningServer server;
};

TEST_F(ListingTest, FindsTheMomentsWordsWereSeenAndFiltersButNeverWhatRedactionKeptOut) {
    using Found = std::vector<std::pair<std::string, std::vector<double>>>;
    const std::pair<std::string, Found> cases[] = {
        {"?q=frozen", {{"rec-1", {999.6}}}},
        {"?q=Card+FROZ", {{"rec-1", {999.6}}}},
        {"?q=correct+horse+battery+staple", {}},
        {"?q=correct", {}},
        {"?q=synced", {{"rec-1", {1500}}}},
        {"?q=api%2Fcart", {{"rec-1", {2000}}}},
        {"?q=statement", {{"rec-2", {700}}}},
        {"?q=%21%21", {}},
        {"", {{"rec-2", {}}, {"rec-1", {}}}},
        {"?errors=1", {{"rec-1", {}}}},
        {"?user=bob", {{"rec-2", {}}}},
        {"?trait=plan%3Dpro&app=app-1", {{"rec-1", {}}}},
        {"?app=app-2", {}},
        {"?from=2000-01-01T00%3A00&to=2999-12-31", {{"rec-2", {}}, {"rec-1", {}}}},
        {"?to=2000-01-01", {}},
    };
    for (const auto& [query, expected] : cases) EXPECT_EQ(found(query), expected) << query;

    const json first = json::parse(get(server.url("/recordings.json?q=frozen&limit=1")).body);
    // Rounded up, so that the player shows that capture and not the one before.
    EXPECT_EQ(first["recordings"][0]["moments"][0]["url"], "/app-1/s/rec-1/0#at=1000&q=frozen");
    EXPECT_EQ(first["recordings"][0]["userIDs"], json::array({"user-42"}));
    EXPECT_TRUE(first["recordings"][0]["hasErrors"]);
    EXPECT_TRUE(first["next"].is_null());
    for (const char* bad : {"?limit=0", "?after=7", "?from=yesterday", "?trait=%3Dpro", "?q=%zz"})
        EXPECT_EQ(get(server.url("/recordings.json") + bad).status, 400) << bad;
}

TEST_F(ListingTest, ThePageKeepsTheSearchInItsFormAndLinksTheMomentsAndTheOlderPage) {
    const Reply page = get(server.url("/?q=card+froz&errors=1"));
    ASSERT_EQ(page.status, 200);
    EXPECT_NE(page.body.find("name=\"q\" id=\"q\" value=\"card froz\""), std::string::npos) << page.body;
    EXPECT_NE(page.body.find("value=\"1\" checked"), std::string::npos);
    EXPECT_NE(page.body.find("href=\"/app-1/s/rec-1/0#at=1000&amp;q=card%20froz\""), std::string::npos);

    const Reply newest = get(server.url("/?limit=1"));
    const auto at = newest.body.find("<a id=\"older\" href=\"");
    ASSERT_NE(at, std::string::npos) << newest.body;
    const std::string older = newest.body.substr(at + 20, newest.body.find('"', at + 20) - at - 20);
    const Reply next = get(server.url(older + "&limit=1"));
    EXPECT_NE(next.body.find(">rec-1</a>"), std::string::npos) << older;
    EXPECT_EQ(next.body.find(">rec-2</a>"), std::string::npos);
}

}  // namespace
}  // namespace qlm_test
