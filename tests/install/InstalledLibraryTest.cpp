// The library as installed: the install_and_build_consumers fixture put it into a scratch prefix and
// built one small host against that prefix alone, once through find_package and once through
// pkg-config. Each host runs here against a loopback ingest endpoint, which counts what arrived.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "tests/support/IngestServer.h"
#include "wire/qm_core.pb.h"

namespace {

struct Finished {
    int status = -1;
    std::string output;
};

Finished run(const std::string& command) {
    Finished result;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return result;
    char buffer[512];
    while (std::fgets(buffer, sizeof buffer, pipe)) result.output += buffer;
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

class InstalledLibrary : public testing::TestWithParam<const char*> {};

TEST_P(InstalledLibrary, AHostBuiltAgainstItRecordsASessionAndGetsItsReplayURL) {
    qlm_test::IngestServer server([](const qlm_test::HttpRequest&) {
        return qlm_test::HttpResponse::text(
            201, R"([{"type":"DASHBOARD_URL","data":{"dashboardURL":"https://dash.example/d"}}])");
    });
    const std::string appID = std::string("consumer-") + GetParam();
    const std::string program = std::string(QLM_CONSUMERS_DIR) + "/" + GetParam() + "/consumer";

    const Finished host = run(program + " " + server.serverURL() + " " + appID + " 2>&1");
    EXPECT_EQ(host.status, 0) << host.output;
    EXPECT_NE(host.output.find("Quillmere 1.0 replay URL: https://dash.example/d/" + appID + "/s/"),
              std::string::npos)
        << host.output;

    // Request by request: every upload is this host's, and its one log line arrived once.
    ASSERT_GE(server.requestCount(), 1u);
    for (const auto& request : server.requests()) {
        EXPECT_EQ(request.path, "/i");
        EXPECT_TRUE(request.query.starts_with("a=" + appID + "&")) << request.query;
    }
    int logged = 0;
    for (const auto& event : server.events()) {
        if (event.type() != "qm.core.LogEvent") continue;
        const auto log = qlm_test::innerMessage<qm::core::LogEvent>(event);
        ASSERT_EQ(log.args_size(), 2);
        EXPECT_EQ(log.args(0).arson(), "installed consumer");
        EXPECT_EQ(log.args(1).arson(), appID);
        ++logged;
    }
    EXPECT_EQ(logged, 1);
}

INSTANTIATE_TEST_SUITE_P(Routes, InstalledLibrary, testing::Values("find-package", "pkg-config"),
                         [](const auto& info) { return std::string(info.param) == "pkg-config" ? "PkgConfig" : "FindPackage"; });

}  // namespace
