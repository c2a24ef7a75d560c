#include "tests/noninterference/ScenarioRunner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "engine/Configuration.h"
#include "engine/Core.h"
#include "engine/SDK.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/LoopbackHttpServer.h"
#include "tests/support/Wait.h"

extern char** environ;

namespace qlm_test {
namespace {

constexpr const char* kScenarioVariable = "QLM_NONINTERFERENCE_SCENARIO";
constexpr const char* kCaptureVariable = "QLM_NONINTERFERENCE_CAPTURE";
constexpr const char* kTranscriptVariable = "QLM_NONINTERFERENCE_TRANSCRIPT";
// The transcript's last line, written by the child with capture on, starts with this.
constexpr std::string_view kCaptureLine = "#capture ";
constexpr auto kChildDeadline = std::chrono::seconds(90);
constexpr auto kCaptureDeadline = std::chrono::seconds(15);

std::string readWhole(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The loopback ingest endpoint of a capture-on run: keeps every batch it is sent.
class Ingest {
public:
    Ingest() {
        server_.route("POST", "/i", [](const HttpRequest&) { return HttpResponse::text(200, ""); });
        server_.start();
    }
    std::string serverURL() const { return server_.url("/i"); }
    std::vector<qm::Event> events() const {
        std::vector<qm::Event> events;
        for (const auto& request : server_.requests()) {
            qm::EventList list;
            if (list.ParseFromString(request.body))
                events.insert(events.end(), list.events().begin(), list.events().end());
        }
        return events;
    }

private:
    LoopbackHttpServer server_;
};

// Starts the library, plays, waits for the check, stops the library and waits for its last batch.
// Gives the capture line.
std::string playWithCapture(const Scenario& scenario, ScenarioRun& run) {
    Ingest ingest;
    auto configuration = std::make_shared<quillmere::Configuration>("noninterference");
    configuration->setServerURL(ingest.serverURL());
    bool started = false;
    run.setLibrary({.start = [&] { started = quillmere::SDK::initialize(configuration) || started; },
                    .shutdown = [] { quillmere::SDK::shutdown(); },
                    .await = [&](const ScenarioRun::CaptureCheck& ready) {
                        return runMainLoopUntil([&] { return ready(ingest.events()); }, kCaptureDeadline);
                    }});
    if (!scenario.startsLibrary) {
        run.startLibrary();
        if (!started) return "failed: the library did not start";
    }
    scenario.play(run);
    if (!run.failure().empty()) return "failed: " + run.failure();
    auto check = run.captureCheck();
    if (!check) check = [](const std::vector<qm::Event>& events) { return !events.empty(); };
    if (!quillmere::SDK::currentCore()) return "failed: the library was not running when the scenario ended";
    // The uploads go once a second: what the scenario expects reaches the endpoint while it runs.
    const bool settled = runMainLoopUntil([&] { return check(ingest.events()); }, kCaptureDeadline);
    quillmere::SDK::shutdown();
    if (!settled) return "failed: the library never finished the events the scenario expects";
    std::size_t count = 0;
    const bool reached = runMainLoopUntil(
        [&] {
            const auto events = ingest.events();
            count = events.size();
            return check(events);
        },
        kCaptureDeadline);
    if (!reached) return "failed: the expected events never reached the ingest endpoint";
    return "reached the ingest endpoint: " + std::to_string(count) + " events";
}

}  // namespace

bool isScenarioProcess() {
    return std::getenv(kScenarioVariable) != nullptr;
}

int playScenarioFromEnvironment() {
    keepSanitizerReportsOnStandardError();
    const Scenario* scenario = findScenario(std::getenv(kScenarioVariable));
    const char* transcriptPath = std::getenv(kTranscriptVariable);
    if (!scenario || !transcriptPath) return 2;
    const char* capture = std::getenv(kCaptureVariable);
    const bool captureOn = capture && std::string_view(capture) == "on";

    Transcript transcript;
    ScenarioRun run(transcript);
    std::string captureLine;
    if (captureOn) {
        captureLine = playWithCapture(*scenario, run);
    } else {
        scenario->play(run);
    }
    run.runEndSteps();
    if (captureOn) transcript.add(std::string(kCaptureLine) + captureLine);
    // Without exit handlers: what the library leaves in place at shutdown stays, as in a host.
    std::_Exit(transcript.save(transcriptPath) ? 0 : 3);
}

RunResult playInFreshProcess(const Scenario& scenario, bool captureOn) {
    RunResult result;
    const std::string base = ::testing::TempDir() + "noninterference-" + scenario.name +
                             (captureOn ? "-on-" : "-off-") + std::to_string(::getpid());
    const std::string transcriptPath = base + ".transcript";
    const std::string logPath = base + ".log";
    ::unlink(transcriptPath.c_str());

    std::vector<std::string> environment;
    for (char** entry = environ; *entry; ++entry) environment.emplace_back(*entry);
    environment.push_back(std::string(kScenarioVariable) + "=" + scenario.name);
    environment.push_back(std::string(kCaptureVariable) + "=" + (captureOn ? "on" : "off"));
    environment.push_back(std::string(kTranscriptVariable) + "=" + transcriptPath);
    std::vector<char*> envp;
    for (auto& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    std::string self = "/proc/self/exe";
    char* argv[] = {self.data(), nullptr};
    pid_t child = -1;
    const int spawned = ::posix_spawn(&child, "/proc/self/exe", &actions, nullptr, argv, envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        result.note = "could not start a process";
        return result;
    }

    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + kChildDeadline;
    while (::waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            result.note = "the run did not end in time";
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const std::string log = readWhole(logPath);
    result.completed = result.note.empty() && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (result.note.empty() && !result.completed)
        result.note = "the run failed (status " + std::to_string(status) + ")";
    for (auto& line : Transcript::load(transcriptPath)) {
        if (line.starts_with(kCaptureLine)) {
            result.captured = line.substr(kCaptureLine.size()).starts_with("reached");
            result.note += line;
        } else {
            result.observed.push_back(std::move(line));
        }
    }
    if (!log.empty()) result.note += "\nits output:\n" + log;
    ::unlink(transcriptPath.c_str());
    ::unlink(logPath.c_str());
    return result;
}

}  // namespace qlm_test
