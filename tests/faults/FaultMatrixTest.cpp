// The library in a host whose ingest server, console or descriptors misbehave. Every case runs in
// a process of its own and checks three things: the host sees what it would see without the
// library (its output, its calls' results, its own descriptors); the server received each event
// at most once, and exactly those the design lets through; and descriptors, threads and memory end
// where they began, within a small allowance for the process-wide threads the first start makes.
//
// With QLM_FAULT_FIGURES naming a file, each case appends its figures to it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "engine/Core.h"
#include "engine/SDK.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Console.h"
#include "tests/support/FaultServer.h"
#include "tests/support/ProcessResources.h"
#include "tests/support/Wait.h"
#include "tests/upload/UploadTestSupport.h"

using namespace quillmere;
using namespace std::chrono_literals;
using qlm_test::FaultServer;
using qlm_test::HttpRequest;
using qlm_test::HttpResponse;
using qlm_test::LoopbackHttpServer;
using qlm_test::ProcessResources;

namespace {

// The heavy cases, smaller under the sanitizers, which slow them tenfold and more. (The huge reply
// costs no time: it is cut off early.)
constexpr std::size_t kReplyMiB = 64;
#ifdef QLM_SANITIZED
constexpr int kCycles = 40;
constexpr std::size_t kBurstBytes = 256 * 1024;
// What the huge reply may add to the peak: below the reply itself still, but the sanitizers'
// shadow of the memory touched counts too.
constexpr std::size_t kHugeReplyAllowanceKiB = kReplyMiB * 1024 * 3 / 4;
#else
constexpr int kCycles = 1000;
constexpr std::size_t kBurstBytes = 1024 * 1024;
constexpr std::size_t kHugeReplyAllowanceKiB = kReplyMiB * 1024 / 2;
#endif

// What the first start leaves for the process: threads (the URL loader, the timer thread, idle
// workers of the global queues) and descriptors (the URL loader's wake-up pair of sockets, and the
// few connections it keeps for reuse until it next looks at them, closed by the server or not).
constexpr std::size_t kThreadAllowance = 8;
constexpr std::size_t kDescriptorAllowance = 6;
// How long resources may take to come back: longer than the 10 s after which the global queues'
// idle workers retire, since a busy machine can make a burst of them.
constexpr auto kSettling = 20s;
// What a case may add to the peak resident memory of its process.
constexpr std::size_t kPeakAllowanceKiB = 48 * 1024;

LoopbackHttpServer::Options quickToClose() {
    LoopbackHttpServer::Options options;
    options.keepAliveIdle = 200ms;
    return options;
}

std::string hostLine(int number) {
    return "host line " + std::to_string(number) + "\n";
}

// A host with its own console behind descriptors 1 and 2, and the library's log capture on. The
// baseline is taken once the server and the consoles stand, before the library first starts.
class Host {
public:
    explicit Host(const FaultServer& server) : server_(server) { baseline_ = ProcessResources::now(); }

    std::shared_ptr<Configuration> configuration() const {
        auto configuration = std::make_shared<Configuration>("app-1");
        configuration->setServerURL(server_.serverURL());
        configuration->setViewScanningEnabled(false);
        configuration->setNetworkCaptureEnabled(false);
        configuration->setLogCaptureEnabled(true);
        return configuration;
    }

    void start() {
        ASSERT_TRUE(SDK::initialize(configuration()));
        core_ = SDK::currentCore();
    }

    // A write of the host's: it must go through whole, at once, as to a plain pipe.
    void say(const std::string& text) {
        EXPECT_EQ(::write(STDOUT_FILENO, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        said_ += text;
    }

    // Shuts down, which must not wait on the server, and waits until every reply was handled.
    void stop() {
        const auto began = std::chrono::steady_clock::now();
        SDK::shutdown();
        EXPECT_LT(std::chrono::steady_clock::now() - began, 2s) << "shutdown waited";
        settle();
    }

    void settle() {
        if (!core_) return;
        EXPECT_TRUE(core_->flush(std::chrono::steady_clock::now() + 20s));
        made_ = static_cast<uint32_t>(core_->session()->seqID().value());
    }

    // What reached the console is what the host wrote, byte for byte, in order.
    void expectConsoleUnchanged() {
        EXPECT_TRUE(out.waitFor(said_));
        EXPECT_TRUE(out.text() == said_) << "the console got " << out.text().size() << " of " << said_.size();
        EXPECT_TRUE(out.isBehind(STDOUT_FILENO));
        EXPECT_TRUE(err.isBehind(STDERR_FILENO));
    }

    // Ends the case: descriptors and threads back within the allowance, memory within its own,
    // the figures written down.
    void expectResourcesBounded(const char* name, std::size_t peakAllowanceKiB = kPeakAllowanceKiB) {
        ProcessResources after;
        const bool settled = qlm_test::waitUntil(
            [&] {
                after = ProcessResources::now();
                return after.descriptors <= baseline_.descriptors + kDescriptorAllowance &&
                       after.threads <= baseline_.threads + kThreadAllowance;
            },
            kSettling);
        EXPECT_TRUE(settled) << "from " << baseline_.describe() << " to " << after.describe() << ": "
                             << ProcessResources::descriptorList();
        EXPECT_LE(after.peakResidentKiB, baseline_.residentKiB + peakAllowanceKiB)
            << "from " << baseline_.describe() << " to " << after.describe();
        record(name, baseline_, after);
    }

    static void record(const char* name, const ProcessResources& before, const ProcessResources& after) {
        const char* file = std::getenv("QLM_FAULT_FIGURES");
        if (!file) return;
        std::ofstream(file, std::ios::app) << name << ": before " << before.describe() << "; after "
                                           << after.describe() << "\n";
    }

    // The events the library made in this run: numbers 0 up to this.
    uint32_t made() const { return made_; }

    qlm_test::Console out{STDOUT_FILENO};
    qlm_test::Console err{STDERR_FILENO};

private:
    const FaultServer& server_;
    ProcessResources baseline_;
    std::shared_ptr<Core> core_;
    std::string said_;
    uint32_t made_ = 0;
};

std::vector<uint32_t> numbersFrom(uint32_t first, uint32_t end) {
    std::vector<uint32_t> numbers;
    for (uint32_t n = first; n < end; ++n) numbers.push_back(n);
    return numbers;
}

// The server's events by seqID, sorted, repeats kept: a repeat shows as a number twice.
std::vector<uint32_t> received(const FaultServer& server) {
    auto numbers = server.seqIDs();
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

// A short session: a few lines, a line while the first send runs, shutdown.
void runSession(Host& host, const FaultServer& server, std::size_t requestsBeforeShutdown) {
    host.start();
    for (int i = 0; i < 3; ++i) host.say(hostLine(i));
    EXPECT_TRUE(qlm_test::waitUntil([&] { return server.requests().size() >= requestsBeforeShutdown; }, 10s));
    host.say(hostLine(3));
    host.stop();
}

HttpResponse replying(int status, std::string body = "") {
    return HttpResponse::text(status, std::move(body), "application/json");
}

void serverDownForTheWholeRun() {
    FaultServer server;
    server.down();
    Host host(server);
    runSession(host, server, 0);
    host.expectConsoleUnchanged();
    EXPECT_TRUE(server.requests().empty());
    host.expectResourcesBounded("server down");
}

void serverDownThenUp() {
    FaultServer server([](std::size_t, const HttpRequest&) { return replying(200); }, quickToClose());
    Host host(server);  // the baseline counts the server's own descriptors and threads
    server.down();
    host.start();
    host.say(hostLine(0));
    // The first send has failed once its diagnostic, captured too, reached the console.
    EXPECT_TRUE(host.err.waitFor("Quillmere: Upload task failed"));
    ASSERT_TRUE(server.up());
    host.say(hostLine(1));
    EXPECT_TRUE(qlm_test::waitUntil([&] { return !server.requests().empty(); }, 10s));
    host.stop();
    host.expectConsoleUnchanged();
    // What went while the server was down is lost, not retried; from its return on, everything.
    const auto numbers = received(server);
    ASSERT_FALSE(numbers.empty());
    EXPECT_GT(numbers.front(), 0u) << "the batch sent while down came back";
    EXPECT_EQ(numbers, numbersFrom(numbers.front(), host.made()));
    host.expectResourcesBounded("server down, then up");
}

template <int Status>
void serverRepliesWith() {
    FaultServer server([](std::size_t, const HttpRequest&) { return replying(Status, R"({"error":"no"})"); },
                       quickToClose());
    Host host(server);
    runSession(host, server, 1);
    host.expectConsoleUnchanged();
    EXPECT_EQ(received(server), numbersFrom(0, host.made())) << "each batch once, none again";
    host.expectResourcesBounded(("status " + std::to_string(Status)).c_str());
}

void replySlowerThanTheTimeOut() {
    FaultServer server(
        [](std::size_t index, const HttpRequest&) {
            auto response = replying(201);
            if (index == 0) response.delayBeforeReply = 3s;
            return response;
        },
        quickToClose());
    Host host(server);
    // The Uploader alone, so that the time-out can be short; the URL session is the host's.
    auto delegate = std::make_shared<qlm_test::RecordingDelegate>();
    auto uploader = Uploader::make(Session::make("app-1"), server.serverURL(), delegate, 1.0);
    ASSERT_TRUE(uploader);
    uploader->start();
    uploader->append(qlm_test::numberedEvent(0));
    uploader->append(qlm_test::numberedEvent(1));
    EXPECT_TRUE(qlm_test::waitUntil([&] { return server.requests().size() == 1; }, 10s));
    uploader->append(qlm_test::numberedEvent(2));
    EXPECT_TRUE(qlm_test::waitUntil([&] { return server.requests().size() == 2; }, 10s));
    qlm_test::stopAndSettle(*uploader);
    EXPECT_TRUE(host.err.waitFor("Quillmere: Upload task failed"));
    EXPECT_EQ(delegate->accepted, 1) << "the timed-out batch counts as not accepted";
    EXPECT_EQ(received(server), numbersFrom(0, 3));
    host.expectResourcesBounded("reply slower than the time-out");
}

void connectionResetBeforeTheRequest() {
    auto options = quickToClose();
    options.resetOnAccept = true;
    FaultServer server([](std::size_t, const HttpRequest&) { return replying(201); }, options);
    Host host(server);
    host.start();
    host.say(hostLine(0));
    EXPECT_TRUE(host.err.waitFor("Quillmere: Upload task failed"));
    host.stop();
    host.expectConsoleUnchanged();
    EXPECT_TRUE(server.requests().empty());
    host.expectResourcesBounded("reset before the request");
}

void connectionResetAfterTheRequest() {
    FaultServer server(
        [](std::size_t, const HttpRequest&) {
            auto response = replying(201);
            response.resetWithoutReply = true;
            return response;
        },
        quickToClose());
    Host host(server);
    runSession(host, server, 1);
    host.expectConsoleUnchanged();
    EXPECT_EQ(received(server), numbersFrom(0, host.made())) << "a reset request is never sent again";
    host.expectResourcesBounded("reset after the request");
}

void shutdownDuringASend() {
    FaultServer server(
        [](std::size_t index, const HttpRequest&) {
            auto response = replying(201);
            if (index == 0) response.delayBeforeReply = 3s;
            return response;
        },
        quickToClose());
    Host host(server);
    runSession(host, server, 1);  // the first reply is still on its way when shutdown comes
    host.expectConsoleUnchanged();
    EXPECT_EQ(received(server), numbersFrom(0, host.made()));
    host.expectResourcesBounded("shutdown during a send");
}

// A 201 whose body is unfit to read: the session goes on as for a reply without messages.
void createdWithBody(HttpResponse response, const char* name, std::size_t peakAllowanceKiB) {
    FaultServer server([&](std::size_t, const HttpRequest&) { return response; }, quickToClose());
    Host host(server);
    host.start();
    host.say(hostLine(0));
    // Held until the first reply is accepted, then given the replay URL: none, as nothing was relayed.
    std::mutex mutex;
    std::optional<std::string> url;
    SDK::getSessionURL([&](std::string given) {
        std::lock_guard lock(mutex);
        url = std::move(given);
    });
    EXPECT_TRUE(qlm_test::waitUntil(
        [&] {
            std::lock_guard lock(mutex);
            return url.has_value();
        },
        10s));
    {
        std::lock_guard lock(mutex);
        EXPECT_EQ(url, std::optional<std::string>(""));
    }
    host.say(hostLine(1));
    host.stop();
    host.expectConsoleUnchanged();
    EXPECT_EQ(received(server), numbersFrom(0, host.made()));
    host.expectResourcesBounded(name, peakAllowanceKiB);
}

void createdWithAHugeBody() {
    auto response = replying(201);
    const std::string relay = R"([{"type":"DASHBOARD_URL","data":{"dashboardURL":"https://d.example"}}])";
    response.chunks = {relay + std::string(1024 * 1024 - relay.size(), ' ')};
    response.repeat = kReplyMiB;
    // Far below the body itself: the reply is not read past what the library keeps of it.
    createdWithBody(response, "201 with a huge body", kHugeReplyAllowanceKiB);
}

void createdWithMalformedJson() {
    createdWithBody(replying(201, R"([{"type":"DASHBOARD_URL","data":{"dashboardURL":)"), "201 malformed JSON",
                    kPeakAllowanceKiB);
}

void createdWithDeeplyNestedJson() {
    createdWithBody(replying(201, std::string(100000, '[') + std::string(100000, ']')),
                    "201 JSON nested 100,000 deep", kPeakAllowanceKiB);
}

void manyStartsAndShutdowns() {
    FaultServer server([](std::size_t, const HttpRequest&) { return replying(200); }, quickToClose());
    Host host(server);
    ProcessResources afterFirst;
    for (int cycle = 0; cycle < kCycles; ++cycle) {
        ASSERT_TRUE(SDK::initialize(host.configuration())) << "cycle " << cycle;
        host.say(hostLine(cycle));
        SDK::shutdown();
        if (cycle == 0) afterFirst = ProcessResources::now();
    }
    host.expectConsoleUnchanged();
    // The host's own open still finds descriptors: nothing piled up.
    const int own = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_GE(own, 0);
    if (own >= 0) ::close(own);
    ProcessResources afterAll;
    EXPECT_TRUE(qlm_test::waitUntil(
        [&] {
            afterAll = ProcessResources::now();
            return afterAll.descriptors <= afterFirst.descriptors + kDescriptorAllowance &&
                   afterAll.threads <= afterFirst.threads + kThreadAllowance;
        },
        kSettling))
        << "after the first cycle " << afterFirst.describe() << ", after all " << afterAll.describe();
    Host::record("cycles: after the first", afterFirst, afterAll);
    host.expectResourcesBounded("init/shutdown cycles");
}

void burstWhileTheRunLoopStands() {
    FaultServer server([](std::size_t, const HttpRequest&) { return replying(200); }, quickToClose());
    Host host(server);
    host.start();
    // One write from the thread that initialized, which never turns its run loop here.
    const std::string burst(kBurstBytes - 1, 'x');
    const auto began = std::chrono::steady_clock::now();
    host.say(burst + "\n");
    EXPECT_LT(std::chrono::steady_clock::now() - began, 10s);
    host.stop();
    host.expectConsoleUnchanged();
    EXPECT_EQ(received(server), numbersFrom(0, host.made()));
    std::size_t captured = 0;
    for (const auto& event : server.events()) {
        if (event.type() == "qm.core.LogEvent") captured += event.data().size();
    }
    EXPECT_GT(captured, kBurstBytes) << "the whole burst reached the wire";
    host.expectResourcesBounded("1 MB burst, run loop standing");
}

void consoleThatStopsReading() {
    FaultServer server([](std::size_t, const HttpRequest&) { return replying(200); }, quickToClose());
    Host host(server);
    host.start();
    host.out.pause();
    // A host thread writes more than two pipes hold: it waits, as it would on the console alone.
    const std::string text(256 * 1024, 'y');
    std::thread writer([&] { host.say(text); });
    // The initializing thread, and the host's calls, are free meanwhile.
    const auto began = std::chrono::steady_clock::now();
    SDK::addLog("INFO", {"still here"});
    SDK::shutdown();  // gives up waiting for the stalled console after a while, and leaves it be
    EXPECT_LT(std::chrono::steady_clock::now() - began, 3s);
    host.out.resume();
    writer.join();
    host.settle();
    host.expectConsoleUnchanged();
    const auto numbers = received(server);
    EXPECT_TRUE(std::adjacent_find(numbers.begin(), numbers.end()) == numbers.end()) << "a repeat";
    host.expectResourcesBounded("console stops reading");
}

void standardOutputClosedAtStart() {
    FaultServer server([](std::size_t, const HttpRequest&) { return replying(200); }, quickToClose());
    Host host(server);
    const int saved = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    ::close(STDOUT_FILENO);
    host.start();
    // Writes keep failing as before, and the host's next descriptor is still the one it closed.
    errno = 0;
    EXPECT_EQ(::write(STDOUT_FILENO, "x\n", 2), -1);
    EXPECT_EQ(errno, EBADF);
    const int reopened = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(reopened, STDOUT_FILENO);
    ::close(reopened);
    host.stop();
    ::dup2(saved, STDOUT_FILENO);
    ::close(saved);
    EXPECT_EQ(received(server), numbersFrom(0, host.made()));
    EXPECT_EQ(host.made(), 2u) << "metadata and identify; nothing captured";
    host.expectResourcesBounded("fd 1 closed at start");
}

struct FaultCase {
    const char* name;
    void (*scenario)();
};

class FaultMatrix : public ::testing::TestWithParam<FaultCase> {};

TEST_P(FaultMatrix, HostUnchangedServerCountedResourcesBounded) {
    qlm_test::inChildProcess(GetParam().scenario);
}

INSTANTIATE_TEST_SUITE_P(Cases, FaultMatrix,
                         ::testing::Values(FaultCase{"ServerDown", serverDownForTheWholeRun},
                                           FaultCase{"ServerDownThenUp", serverDownThenUp},
                                           FaultCase{"Status500", serverRepliesWith<500>},
                                           FaultCase{"Status503", serverRepliesWith<503>},
                                           FaultCase{"Status400", serverRepliesWith<400>},
                                           FaultCase{"Status404", serverRepliesWith<404>},
                                           FaultCase{"SlowerThanTheTimeOut", replySlowerThanTheTimeOut},
                                           FaultCase{"ResetBeforeTheRequest", connectionResetBeforeTheRequest},
                                           FaultCase{"ResetAfterTheRequest", connectionResetAfterTheRequest},
                                           FaultCase{"ShutdownDuringASend", shutdownDuringASend},
                                           FaultCase{"CreatedWithAHugeBody", createdWithAHugeBody},
                                           FaultCase{"CreatedWithMalformedJson", createdWithMalformedJson},
                                           FaultCase{"CreatedWithDeeplyNestedJson", createdWithDeeplyNestedJson},
                                           FaultCase{"ManyStartsAndShutdowns", manyStartsAndShutdowns},
                                           FaultCase{"BurstWhileTheRunLoopStands", burstWhileTheRunLoopStands},
                                           FaultCase{"ConsoleThatStopsReading", consoleThatStopsReading},
                                           FaultCase{"StandardOutputClosedAtStart", standardOutputClosedAtStart}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
