// The recording inspector on stores the real server filled: the JSON-lines dump, and the privacy
// check on recordings that do and do not hold a secret, wherever it may hide.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>

#include "capture/network/JsonValue.h"
#include "server/inspect/RecordingInspector.h"
#include "tests/server/ServerHarness.h"
#include "wire/qm_core.pb.h"
#include "wire/qm_ios.pb.h"
#include "wire/qm_network.pb.h"

namespace qlm_test {
namespace {

using namespace qlm::ingest;
using nlohmann::json;

// Quotes and a slash: the JSON writer escapes both, so a plain search of a body would miss it.
const std::string kSecret = "pa\"ss/w0rd";

// A sign-in screen the library rendered, the password typed into a secure field.
qm::ios::PDFViewCapture signInScreen(const std::string& visibleText) {
    return capturedScreen(visibleText, kSecret);
}

// A clean session: the password typed (but redacted), output and an exchange that never name it.
std::vector<qm::Event> cleanSession() {
    qm::network::RequestEvent request;
    request.set_reqid("ios-0");
    request.set_url("http://api.test/login");
    (*request.mutable_headers())["Authorization"] = "Bearer abc";
    *request.mutable_body() = *quillmere::jsonValue(R"({"user":"ada"})");
    return {eventAt(0, 0, capturedOutput("signing in\n")), eventAt(1, 10, signInScreen("Password")),
            eventAt(2, 20, request)};
}

std::string runCheck(RecordingStore& store, const std::string& secret, int& exitCode,
                     const std::string& recordingID = "") {
    std::ostringstream out, err;
    exitCode = checkPrivacy(store, secret, recordingID, out, err);
    return out.str() + err.str();
}

TEST(PrivacyCheckTest, PassesWhenTheSecretWasTypedOnlyIntoASecureField) {
    RunningServer server;
    ASSERT_EQ(post(server.ingestURL("rec-1"), encodeBatch(cleanSession())).status, 201);
    int code = -1;
    const std::string report = runCheck(server.store(), kSecret, code);
    EXPECT_EQ(code, kInspectOK) << report;
    EXPECT_NE(report.find("PASS"), std::string::npos);
    EXPECT_NE(report.find("3 events (1 screen captures) of 1 recording"), std::string::npos) << report;
}

struct Leak {
    const char* name;
    std::function<qm::Event()> event;  // one more event, seqID 9, that holds the secret somewhere
    const char* where;
};

void PrintTo(const Leak& leak, std::ostream* out) {
    *out << leak.name;
}

class PrivacyLeakTest : public testing::TestWithParam<Leak> {};

TEST_P(PrivacyLeakTest, FailsNamingTheEventAndThePlace) {
    RunningServer server;
    auto events = cleanSession();
    events.push_back(GetParam().event());
    ASSERT_EQ(post(server.ingestURL("rec-1"), encodeBatch(events)).status, 201);
    ASSERT_EQ(post(server.ingestURL("rec-2"), encodeBatch(cleanSession())).status, 201);

    int code = -1;
    const std::string report = runCheck(server.store(), kSecret, code);
    EXPECT_EQ(code, kSecretFound) << report;
    EXPECT_NE(report.find("FOUND in app-1/rec-1/0 seq 9"), std::string::npos) << report;
    EXPECT_NE(report.find(GetParam().where), std::string::npos) << report;
    EXPECT_EQ(report.find("rec-2/0"), std::string::npos) << "only the leaking recording is named";

    const std::string other = runCheck(server.store(), kSecret, code, "rec-2");
    EXPECT_EQ(code, kInspectOK) << "--recording narrows the check: " << other;
}

INSTANTIATE_TEST_SUITE_P(
    Places, PrivacyLeakTest,
    testing::Values(
        Leak{"FrameText", [] { return eventAt(9, 30, signInScreen("Your password is " + kSecret)); },
             "frame text"},
        Leak{"CapturedOutput", [] { return eventAt(9, 30, capturedOutput("debug: " + kSecret + "\n")); },
             "args.arson"},
        Leak{"ResponseBody",
             [] {
                 qm::network::ResponseEvent response;
                 response.set_reqid("ios-0");
                 *response.mutable_body() = *quillmere::jsonValue(R"({"echo":")" + kSecret + R"("})");
                 return eventAt(9, 30, response);
             },
             "body.arson"},
        Leak{"RequestHeader",
             [] {
                 qm::network::RequestEvent request;
                 request.set_reqid("ios-1");
                 (*request.mutable_headers())["X-Password"] = kSecret;
                 return eventAt(9, 30, request);
             },
             "headers[X-Password]"},
        Leak{"IdentifyTrait",
             [] {
                 qm::Identify identify;
                 (*identify.mutable_traits())["hint"] = kSecret;
                 return eventAt(9, 30, identify);
             },
             "traits[hint]"},
        Leak{"UnreadableFrame",
             [] {
                 qm::ios::PDFViewCapture capture;
                 capture.set_pdfdata(fakePdf(2000));  // what cannot be read cannot be shown clean
                 return eventAt(9, 30, capture);
             },
             "unreadable frame"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PrivacyCheckTest, AnUnknownRecordingIsAnErrorNotAPass) {
    RunningServer server;
    ASSERT_EQ(post(server.ingestURL("rec-1"), encodeBatch(cleanSession())).status, 201);
    int code = -1;
    const std::string report = runCheck(server.store(), kSecret, code, "rec-404");
    EXPECT_EQ(code, kInspectFailed) << report;
    EXPECT_EQ(report.find("PASS"), std::string::npos);
}

TEST(InspectTest, DumpsEachEventAsAJsonLineWithFramesAsSizeAndText) {
    RunningServer server;
    ASSERT_EQ(post(server.ingestURL("rec-1"), encodeBatch(cleanSession())).status, 201);
    ASSERT_EQ(post(server.ingestURL("rec-2"), encodeBatch(everyKindOfEvent())).status, 201);
    std::ostringstream out, err;
    ASSERT_EQ(inspectRecordings(server.store(), "rec-1", out, err), kInspectOK) << err.str();

    std::vector<json> lines;
    std::istringstream in(out.str());
    for (std::string line; std::getline(in, line);) lines.push_back(json::parse(line));
    ASSERT_EQ(lines.size(), 3u) << "rec-2 is left out";
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i]["seqID"], i);
        EXPECT_EQ(lines[i]["recordingID"], "rec-1");
    }
    EXPECT_EQ(lines[0]["message"]["args"][0]["arson"], R"(["signing in\n"])");
    const json& pdf = lines[1]["message"]["pdfData"];
    EXPECT_GT(pdf["size"].get<int>(), 500);
    EXPECT_EQ(pdf["pages"], 1);
    EXPECT_NE(pdf["text"].get<std::string>().find("Password"), std::string::npos) << pdf;
    EXPECT_EQ(out.str().find("%PDF"), std::string::npos) << "PDF bytes are summarised, not dumped";
    EXPECT_EQ(lines[2]["message"]["headers"]["Authorization"], "Bearer abc");

    std::ostringstream all, none;
    ASSERT_EQ(inspectRecordings(server.store(), "", all, err), kInspectOK);
    const std::string dump = all.str();
    EXPECT_EQ(std::count(dump.begin(), dump.end(), '\n'), 10);
    EXPECT_EQ(inspectRecordings(server.store(), "rec-404", none, err), kInspectFailed);
}

}  // namespace
}  // namespace qlm_test
