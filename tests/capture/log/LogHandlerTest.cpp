// Log capture against real pipes, a console of the test's own and a loopback ingest server. Every
// case that starts a Core runs in a child process: the library takes descriptors 1 and 2.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "capture/log/LogHandler.h"
#include "capture/network/JsonValue.h"
#include "engine/SDK.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSJSONSerialization.h"
#include "platform/foundation/NSString.h"
#include "tests/support/Console.h"
#include "tests/engine/EngineTestSupport.h"
#include "wire/qm_core.pb.h"

using namespace quillmere;
using qlm_test::Console;
using qlm_test::IngestServer;
using Level = qm::core::LogEvent_LogLevel;

namespace {

std::shared_ptr<Configuration> logCaptureOnly(const IngestServer& server) {
    auto configuration = qlm_test::configurationFor(server);
    configuration->setLogCaptureEnabled(true);
    configuration->setViewScanningEnabled(false);
    configuration->setNetworkCaptureEnabled(false);
    return configuration;
}

// Shuts `core` down and waits until every upload it made was answered. The caller's reference
// keeps the Core, whose own reference to the Uploader is the one that stays.
void shutDownAndSettle(Core& core) {
    platform::dispatch_sync(core.queue(), [] {});
    core.shutdown();
    std::weak_ptr<Uploader> uploader = core.uploader();
    EXPECT_TRUE(qlm_test::waitUntil([&] { return uploader.use_count() <= 1; }, std::chrono::seconds(10)));
}

// The log events the server received, in the order they were made.
std::vector<qm::core::LogEvent> logEvents(const IngestServer& server) {
    auto events = server.events();
    std::sort(events.begin(), events.end(),
              [](const auto& a, const auto& b) { return a.seqid() < b.seqid(); });
    std::vector<qm::core::LogEvent> logs;
    for (const auto& event : events) {
        if (event.type() == "qm.core.LogEvent")
            logs.push_back(qlm_test::innerMessage<qm::core::LogEvent>(event));
    }
    return logs;
}

// What the captured pieces say together, each read back from its one JSON-array argument; all must
// be stdout's.
std::string joinedStdout(const std::vector<qm::core::LogEvent>& events) {
    std::string joined;
    for (const auto& event : events) {
        EXPECT_EQ(event.loglevel(), qm::core::LogEvent_LogLevel_LOG);
        const auto json =
            platform::NSData::dataWithString(event.args_size() == 1 ? event.args(0).arson() : "");
        const auto array = platform::objc_cast<platform::NSArray>(
            platform::NSJSONSerialization::JSONObjectWithData(*json, 0, nullptr));
        if (!array || array->count() != 1) {
            ADD_FAILURE() << "not one captured piece: " << event.DebugString();
            continue;
        }
        joined += platform::NSStringValue(array->objectAtIndex(0)).value_or("");
    }
    return joined;
}

// printf with a format and a runtime argument formats first and writes once. A constant line
// becomes puts, which on an unbuffered stream writes the newline apart.
void printLine(std::FILE* stream, const std::string& line) {
    std::fprintf(stream, "%s", line.c_str());
}

// One session from start to after its shutdown, through the host's entry point.
void capturesWhileRunningAndNotAfter() {
    Console out(STDOUT_FILENO);
    Console err(STDERR_FILENO);
    IngestServer server;
    ASSERT_TRUE(SDK::initialize(logCaptureOnly(server)));
    const auto core = SDK::currentCore();
    EXPECT_FALSE(out.isBehind(STDOUT_FILENO));
    EXPECT_FALSE(err.isBehind(STDERR_FILENO));

    printLine(stdout, "hello\n");
    EXPECT_TRUE(out.waitFor("hello\n"));
    printLine(stderr, "it broke\n");
    EXPECT_TRUE(err.waitFor("it broke\n"));
    const std::string accented = "caf\xC3\xA9\n";
    ASSERT_EQ(::write(STDOUT_FILENO, accented.data(), accented.size()),
              static_cast<ssize_t>(accented.size()));
    EXPECT_TRUE(out.waitFor(accented));
    printLine(stdout, "plain again\n");
    EXPECT_TRUE(out.waitFor("plain again\n"));
    // The host's own log calls never touch the pipes.
    SDK::addLog("WARN", {"a/b", "c"});
    shutDownAndSettle(*core);

    EXPECT_TRUE(out.isBehind(STDOUT_FILENO));
    EXPECT_TRUE(err.isBehind(STDERR_FILENO));
    printLine(stdout, "after\n");
    // The main run loop turns while waiting: a piece still read from the pipes would be handled.
    EXPECT_TRUE(out.waitFor("after\n"));
    platform::dispatch_sync(core->queue(), [] {});
    EXPECT_EQ(core->uploader()->eventBufferCount(), 0u) << "output was captured after shutdown";

    EXPECT_EQ(out.text(), "hello\n" + accented + "plain again\nafter\n");
    EXPECT_EQ(err.text(), "it broke\n");
    const auto events = logEvents(server);
    ASSERT_EQ(events.size(), 4u);
    const std::vector<std::pair<Level, std::string>> captured = {
        {qm::core::LogEvent_LogLevel_LOG, R"(["hello\n"])"},
        {qm::core::LogEvent_LogLevel_ERROR, R"(["it broke\n"])"},
        {qm::core::LogEvent_LogLevel_LOG, R"(["plain again\n"])"}};
    for (std::size_t i = 0; i < captured.size(); ++i) {
        EXPECT_EQ(events[i].loglevel(), captured[i].first) << i;
        ASSERT_EQ(events[i].args_size(), 1) << i;
        EXPECT_EQ(events[i].args(0).arson(), captured[i].second);
        EXPECT_EQ(events[i].tag(), "");
    }
    EXPECT_EQ(events[3].loglevel(), qm::core::LogEvent_LogLevel_WARN);
    ASSERT_EQ(events[3].args_size(), 2);
    EXPECT_EQ(events[3].args(0).arson(), "a/b");
    EXPECT_EQ(events[3].args(1).arson(), "c");
}

TEST(LogCapture, CapturesBothStreamsButNonAsciiPiecesReachTheConsoleOnlyAndNothingAfterShutdown) {
    qlm_test::inChildProcess(capturesWhileRunningAndNotAfter);
}

void withCaptureOffNothingIsRedirected() {
    Console out(STDOUT_FILENO);
    Console err(STDERR_FILENO);
    IngestServer server;
    auto configuration = logCaptureOnly(server);
    configuration->setLogCaptureEnabled(false);
    const auto core = Core::make(Session::make("app-1"), configuration);
    ASSERT_TRUE(core);
    core->start();

    EXPECT_TRUE(out.isBehind(STDOUT_FILENO));
    EXPECT_TRUE(err.isBehind(STDERR_FILENO));
    const std::pair copies{core->logHandler()->stdoutCopy(), core->logHandler()->stderrCopy()};
    EXPECT_TRUE(out.isBehind(copies.first));
    EXPECT_TRUE(err.isBehind(copies.second));
    std::printf("plain\n");
    std::fflush(stdout);  // the C stream keeps its buffer when capture is off
    EXPECT_TRUE(out.waitFor("plain\n"));
    shutDownAndSettle(*core);

    EXPECT_TRUE(logEvents(server).empty());
    // Taken for a restore that never came, the copies go with shutdown all the same (their
    // numbers may have been taken again since, by the uploads' sockets).
    EXPECT_FALSE(out.isBehind(copies.first));
    EXPECT_FALSE(err.isBehind(copies.second));
}

TEST(LogCapture, WithCaptureOffNothingIsRedirectedAndShutdownClosesTheCopies) {
    qlm_test::inChildProcess(withCaptureOffNothingIsRedirected);
}

void bulkOutputArrivesWholeAndInOrder() {
    Console out(STDOUT_FILENO);
    Console err(STDERR_FILENO);
    IngestServer server;
    const auto core = Core::make(Session::make("app-1"), logCaptureOnly(server));
    ASSERT_TRUE(core);
    core->start();

    // Several times what a pipe holds, so the writer has to wait for the handler again and again.
    std::string written;
    for (int i = 0; i < 5000; ++i) {
        char line[16];
        std::snprintf(line, sizeof line, "line %05d ", i);
        written += line + std::string(50, 'x') + "/\n";
    }
    std::thread writer([&written] {
        for (std::size_t at = 0; at < written.size();) {
            const ssize_t n =
                ::write(STDOUT_FILENO, written.data() + at, std::min<std::size_t>(1000, written.size() - at));
            if (n <= 0) return;
            at += static_cast<std::size_t>(n);
        }
    });
    EXPECT_TRUE(qlm_test::runMainLoopUntil([&] { return out.text().size() >= written.size(); },
                                           std::chrono::seconds(20)));
    writer.join();
    shutDownAndSettle(*core);

    EXPECT_TRUE(out.text() == written) << "the console got " << out.text().size() << " bytes, not in order";
    const auto events = logEvents(server);
    EXPECT_GT(events.size(), 1u);
    const std::string captured = joinedStdout(events);
    EXPECT_TRUE(captured == written) << "captured " << captured.size() << " of " << written.size()
                                     << " bytes";
}

TEST(LogCapture, OutputOfAnotherThreadBeyondAPipefulArrivesWholeAndInOrder) {
    qlm_test::inChildProcess(bulkOutputArrivesWholeAndInOrder);
}

class LogEventFromLevel : public ::testing::TestWithParam<std::tuple<const char*, Level>> {};

TEST_P(LogEventFromLevel, MapsExactNamesOnlyAndKeepsArgumentsPlain) {
    const auto [name, level] = GetParam();
    const auto event = LogHandler::logEventFrom(name, {"a", "b/\"c\"\n"});
    EXPECT_EQ(event.loglevel(), level);
    ASSERT_EQ(event.args_size(), 2);
    EXPECT_EQ(event.args(0).arson(), "a");
    EXPECT_EQ(event.args(1).arson(), "b/\"c\"\n");
    EXPECT_EQ(event.tag(), "");
}

INSTANTIATE_TEST_SUITE_P(Table, LogEventFromLevel,
                         ::testing::Values(std::tuple{"DEBUG", qm::core::LogEvent_LogLevel_DEBUG},
                                           std::tuple{"INFO", qm::core::LogEvent_LogLevel_INFO},
                                           std::tuple{"LOG", qm::core::LogEvent_LogLevel_LOG},
                                           std::tuple{"WARN", qm::core::LogEvent_LogLevel_WARN},
                                           std::tuple{"ERROR", qm::core::LogEvent_LogLevel_ERROR},
                                           std::tuple{"Warn", qm::core::LogEvent_LogLevel_LOG},
                                           std::tuple{"error", qm::core::LogEvent_LogLevel_LOG},
                                           std::tuple{"WARN ", qm::core::LogEvent_LogLevel_LOG},
                                           std::tuple{"", qm::core::LogEvent_LogLevel_LOG}));

class JsonValueOf : public ::testing::TestWithParam<std::tuple<std::string, std::optional<std::string>>> {};

TEST_P(JsonValueOf, IsTheOneElementArrayWithJsonEscapesOrNone) {
    const auto& [text, arson] = GetParam();
    const auto value = jsonValue(text);
    ASSERT_EQ(value.has_value(), arson.has_value());
    if (value) {
        EXPECT_EQ(value->arson(), *arson);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, JsonValueOf,
    ::testing::Values(
        std::tuple{std::string("a"), std::optional<std::string>(R"(["a"])")},
        std::tuple{std::string(""), std::optional<std::string>(R"([""])")},
        std::tuple{std::string("hello\n"), std::optional<std::string>(R"(["hello\n"])")},
        std::tuple{std::string("GET /a/b"), std::optional<std::string>(R"(["GET \/a\/b"])")},
        std::tuple{std::string("//x/"), std::optional<std::string>(R"(["\/\/x\/"])")},
        std::tuple{std::string("say \"hi\"\\"), std::optional<std::string>(R"(["say \"hi\"\\"])")},
        std::tuple{std::string("tab\there\x01"), std::optional<std::string>(R"(["tab\there\u0001"])")},
        std::tuple{std::string("caf\xC3\xA9"), std::optional<std::string>("[\"caf\xC3\xA9\"]")},
        std::tuple{std::string("bad \xC3("), std::optional<std::string>()}));

}  // namespace
