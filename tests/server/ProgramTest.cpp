// The quillmere-ingest program as a user runs it: the ready file, an upload, and a clean stop on
// SIGTERM that keeps what was stored; and the command lines it must refuse.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "server/ServerCommandLine.h"
#include "server/store/SqliteStore.h"
#include "tests/server/ServerHarness.h"
#include "tests/support/Wait.h"

namespace qlm_test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

TEST(ProgramTest, ServesUntilSigtermThenExitsCleanlyKeepingTheStore) {
    // Built beside the tests: <build>/server/quillmere-ingest and <build>/tests/test_server.
    const fs::path program =
        fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "server/quillmere-ingest";
    if (!fs::exists(program)) GTEST_SKIP() << "build the target quillmere-ingest first";
    std::string pattern = (fs::path(testing::TempDir()) / "ingest-program-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    const fs::path dir = pattern, db = dir / "kept.sqlite", ready = dir / "ready";
    pid_t pid = 0;
    struct Cleanup {  // the program must not outlive a failed assertion
        const fs::path& dir;
        pid_t& pid;
        ~Cleanup() {
            if (pid > 0 && ::kill(pid, SIGKILL) == 0) ::waitpid(pid, nullptr, 0);
            fs::remove_all(dir);
        }
    } cleanup{dir, pid};

    std::vector<std::string> arguments = {program, "--port", "0", "--db", db, "--ready-file", ready};
    std::vector<char*> argv;
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    // Its output goes where the test's goes, so a failure to start explains itself there.
    ASSERT_EQ(posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ), 0);
    ASSERT_TRUE(waitUntil([&] { return fs::exists(ready); }, 20s)) << "no ready file";
    std::string base;
    std::getline(std::ifstream(ready), base);
    ASSERT_TRUE(base.starts_with("http://127.0.0.1:")) << base;

    const Reply reply = post(base + "/i?a=app-1&r=rec-1&t=tab&s=0&ir=t", encodeBatch(everyKindOfEvent()));
    ASSERT_EQ(reply.status, 201) << reply.error;
    EXPECT_EQ(nlohmann::json::parse(reply.body)[0]["data"]["dashboardURL"], base);

    ::kill(pid, SIGTERM);
    int status = -1;
    ASSERT_TRUE(waitUntil([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }, 20s)) << "ignored SIGTERM";
    pid = 0;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_FALSE(fs::exists(ready));
    EXPECT_EQ(qlm::ingest::SqliteStore(db.string()).events({"app-1", "rec-1", 0}).size(), 7u);
}

using Arguments = std::vector<std::string>;

class BadCommandLineTest : public testing::TestWithParam<Arguments> {};

TEST_P(BadCommandLineTest, IsAnErrorWithUsage) {
    const auto parsed = qlm::ingest::parseCommandLine(GetParam());
    const auto* message = std::get_if<qlm::ingest::CommandLineMessage>(&parsed);
    ASSERT_NE(message, nullptr);
    EXPECT_TRUE(message->isError);
    EXPECT_NE(message->text.find("Usage:"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Table, BadCommandLineTest,
                         testing::Values(Arguments{"--port"}, Arguments{"--port", "65536"},
                                         Arguments{"--port=80x"}, Arguments{"--max-connections", "0"},
                                         Arguments{"--verbose"}, Arguments{"inspect"},
                                         Arguments{"check-privacy", "--db", "f.sqlite"},
                                         Arguments{"check-privacy", "--db", "f.sqlite", "--secret", ""},
                                         Arguments{"inspect", "--db", "f.sqlite", "--secret", "s"}));

}  // namespace
}  // namespace qlm_test
