// Log capture against real pipes and a console of the test's own, with a recording sink. The
// library's log capture end to end is the fault matrix's (tests/faults). Every case that redirects
// runs in a child process: capture takes descriptors 1 and 2.
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
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSJSONSerialization.h"
#include "platform/foundation/NSString.h"
#include "tests/support/Wait.h"
#include "tests/support/Console.h"
#include "tests/support/RecordingSink.h"
#include "wire/qm_core.pb.h"

using namespace quillmere;
using qlm_test::Console;
using qlm_test::RecordingSink;
using Level = qm::core::LogEvent_LogLevel;
using Logged = std::vector<std::pair<Level, std::string>>;

namespace {

// Each event's level and its arguments' texts, joined; sorted, as the two streams' drains hand
// their events over side by side.
Logged logged(const std::vector<qm::core::LogEvent>& events) {
    Logged lines;
    for (const auto& event : events) {
        std::string args;
        for (const auto& arg : event.args()) args += (args.empty() ? "" : "|") + arg.arson();
        EXPECT_EQ(event.tag(), "");
        lines.emplace_back(event.loglevel(), args);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

std::vector<qm::core::LogEvent> logEventsIn(const RecordingSink& sink) {
    return sink.messages<qm::core::LogEvent>(EventType::logEvent);
}

// printf with a format and a runtime argument formats first and writes once. A constant line
// becomes puts, which on an unbuffered stream writes the newline apart.
void printLine(std::FILE* stream, const std::string& line) {
    std::fprintf(stream, "%s", line.c_str());
}

void capturesWhileStartedAndNotAfter() {
    Console out(STDOUT_FILENO);
    Console err(STDERR_FILENO);
    const auto sink = std::make_shared<RecordingSink>();
    const auto handler = LogHandler::make(sink);
    handler->start();
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
    handler->stop();

    EXPECT_TRUE(out.isBehind(STDOUT_FILENO));
    EXPECT_TRUE(err.isBehind(STDERR_FILENO));
    printLine(stdout, "after\n");
    EXPECT_TRUE(out.waitFor("after\n"));
    EXPECT_EQ(out.text(), "hello\n" + accented + "plain again\nafter\n");
    EXPECT_EQ(err.text(), "it broke\n");
    EXPECT_EQ(logged(logEventsIn(*sink)), (Logged{{qm::core::LogEvent_LogLevel_LOG, R"(["hello\n"])"},
                                                  {qm::core::LogEvent_LogLevel_LOG, R"(["plain again\n"])"},
                                                  {qm::core::LogEvent_LogLevel_ERROR, R"(["it broke\n"])"}}));
}

TEST(LogCapture, CapturesBothStreamsButNonAsciiPiecesReachTheConsoleOnlyAndNothingAfterStop) {
    qlm_test::inChildProcess(capturesWhileStartedAndNotAfter);
}

void neverStartedRedirectsNothing() {
    Console out(STDOUT_FILENO);
    Console err(STDERR_FILENO);
    const auto handler = LogHandler::make({});
    const std::pair copies{handler->stdoutCopy(), handler->stderrCopy()};
    EXPECT_TRUE(out.isBehind(STDOUT_FILENO));
    EXPECT_TRUE(out.isBehind(copies.first));
    EXPECT_TRUE(err.isBehind(copies.second));
    handler->stop();
    // Taken for a restore that never came, the copies go all the same.
    EXPECT_FALSE(out.isBehind(copies.first));
    EXPECT_FALSE(err.isBehind(copies.second));
    EXPECT_TRUE(out.isBehind(STDOUT_FILENO));
}

TEST(LogCapture, NeverStartedNothingIsRedirectedAndStopClosesTheCopies) {
    qlm_test::inChildProcess(neverStartedRedirectsNothing);
}

void bulkOutputArrivesWholeAndInOrder() {
    Console out(STDOUT_FILENO);
    Console err(STDERR_FILENO);
    const auto sink = std::make_shared<RecordingSink>();
    const auto handler = LogHandler::make(sink);
    handler->start();

    // Several times what a pipe holds, so the writer has to wait for the drain again and again.
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
    EXPECT_TRUE(qlm_test::waitUntil([&] { return out.text().size() >= written.size(); }, std::chrono::seconds(20)));
    writer.join();
    handler->stop();

    EXPECT_TRUE(out.text() == written) << "the console got " << out.text().size() << " bytes, not in order";
    // Each piece read back from its one JSON-array argument.
    std::string captured;
    const auto events = logEventsIn(*sink);
    EXPECT_GT(events.size(), 1u);
    for (const auto& event : events) {
        ASSERT_EQ(event.args_size(), 1);
        const auto array = platform::objc_cast<platform::NSArray>(platform::NSJSONSerialization::JSONObjectWithData(
            *platform::NSData::dataWithString(event.args(0).arson()), 0, nullptr));
        ASSERT_TRUE(array && array->count() == 1) << event.DebugString();
        captured += platform::NSStringValue(array->objectAtIndex(0)).value_or("");
    }
    EXPECT_TRUE(captured == written) << "captured " << captured.size() << " of " << written.size() << " bytes";
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
