// What network capture costs a host: the time of one request on loopback with capture on and, as
// the same run's baseline, off, for a 1 KB and a 1 MB response; and the memory a request holds
// while its response is under way, which with capture on is the one copy of the body that capture
// keeps.
//
// The host asks a session of its own with a header field set, so every request is captured. The
// library runs as a host runs it and uploads once a second to a loopback endpoint that reads each
// batch and throws it away, so the figures include serialising and sending the events.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "capture/network/Response.h"
#include "engine/Configuration.h"
#include "engine/Core.h"
#include "engine/ResponseSanitizer.h"
#include "engine/SDK.h"
#include "platform/url/NSMutableURLRequest.h"
#include "platform/url/NSURLSession.h"
#include "platform/url/NSURLSessionDataDelegate.h"
#include "server/http/HttpServer.h"
#include "tests/support/LoopbackHttpServer.h"

namespace {

using namespace platform;
using quillmere::Configuration;
using quillmere::SDK;

constexpr long kKilobyte = 1024;
constexpr long kMegabyte = 1024 * 1024;

// An ingest endpoint that answers every POST with 200 and keeps nothing.
class DiscardingEndpoint {
public:
    DiscardingEndpoint()
        : server_(options(), [this](const qlm::ingest::HttpRequest& request) {
              if (request.body.size() >= threshold_.load()) {
                  bigUploads_.fetch_add(1);
                  bigUploads_.notify_all();
              }
              return qlm::ingest::HttpResponse::text(200, "");
          }) {
        server_.start();
    }

    // Uploads of at least `bytes` count from here on; returns how many have come so far.
    int countUploadsOf(std::size_t bytes) {
        threshold_.store(bytes);
        return bigUploads_.load();
    }
    // Waits until more than `seen` such uploads have come.
    void waitForUploadsBeyond(int seen) {
        for (int now = bigUploads_.load(); now <= seen; now = bigUploads_.load()) bigUploads_.wait(now);
    }

    std::string url() const { return "http://127.0.0.1:" + std::to_string(server_.port()) + "/i"; }

private:
    // A second's batch of 1 MB exchanges is far above what an ingest server normally takes.
    static qlm::ingest::HttpServerOptions options() {
        qlm::ingest::HttpServerOptions options;
        options.maxBodyBytes = std::size_t{1} << 31;
        return options;
    }

    // Atomic: written by the benchmark and read on connection threads, or the other way round.
    std::atomic<std::size_t> threshold_{0};
    std::atomic<int> bigUploads_{0};  // only grows
    qlm::ingest::HttpServer server_;
};

// A JSON body of exactly `size` bytes (at least 64), as an API would answer.
std::string jsonBody(long size) {
    std::string body = "[";
    for (int i = 0; static_cast<long>(body.size()) < size - 64; ++i)
        body += R"({"id":)" + std::to_string(i) + R"(,"name":"item","path":"/a/b"},)";
    if (body.back() == ',') body.pop_back();
    body += ']';
    body.append(static_cast<std::size_t>(size) - body.size(), ' ');
    return body;
}

// The app's server: GET /body?size=N answers N bytes; GET /held?size=N sends N bytes and then
// holds the last one back until released.
class AppServer {
public:
    AppServer() {
        server_.route("GET", "/body", [this](const qlm_test::HttpRequest& request) {
            return qlm_test::HttpResponse::text(200, bodyOf(request), "application/json");
        });
        server_.route("GET", "/held", [this](const qlm_test::HttpRequest& request) {
            auto response = qlm_test::HttpResponse::text(200, bodyOf(request), "application/json");
            response.chunks.push_back(" ");
            response.beforeChunk = [this](std::size_t) {
                std::unique_lock lock(mutex_);
                changed_.wait(lock, [this] { return released_; });
            };
            return response;
        });
        server_.start();
    }

    std::string url(const std::string& path, long size) const {
        return server_.url(path + "?size=" + std::to_string(size));
    }
    void hold() {
        std::lock_guard lock(mutex_);
        released_ = false;
    }
    void release() {
        {
            std::lock_guard lock(mutex_);
            released_ = true;
        }
        changed_.notify_all();
    }

private:
    std::string bodyOf(const qlm_test::HttpRequest& request) {
        const long size = std::stol(request.query.substr(request.query.find('=') + 1));
        std::lock_guard lock(mutex_);
        auto& body = bodies_[size];
        if (body.empty()) body = jsonBody(size);
        return body;
    }

    qlm_test::LoopbackHttpServer server_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<long, std::string> bodies_;  // guarded by mutex_
    bool released_ = true;                // guarded by mutex_
};

DiscardingEndpoint& ingest() {
    static auto* made = new DiscardingEndpoint();
    return *made;
}

AppServer& app() {
    static auto* made = new AppServer();
    return *made;
}

// How the library runs while a figure is taken.
enum class Mode : int64_t {
    off = 0,
    on = 1,
    // On, with a response sanitizer that drops every response's event: what the shim costs on its
    // own, without the body's text form and its upload.
    onWithoutResponses = 2,
};

const char* labelFor(Mode mode) {
    switch (mode) {
        case Mode::off:
            return "capture off (baseline)";
        case Mode::on:
            return "capture on";
        case Mode::onWithoutResponses:
            return "capture on, response events dropped";
    }
    return "";
}

class DropResponses final : public quillmere::ResponseSanitizer {
public:
    std::shared_ptr<quillmere::Response> sanitize(std::shared_ptr<quillmere::Response>) override {
        return nullptr;
    }
};

// The library running for the scope, or not.
class Capture {
public:
    explicit Capture(Mode mode) {
        if (mode == Mode::off) return;
        auto configuration = std::make_shared<Configuration>("bench");
        configuration->setServerURL(ingest().url());
        configuration->setLogCaptureEnabled(false);
        configuration->setViewScanningEnabled(false);
        if (mode == Mode::onWithoutResponses)
            configuration->setResponseSanitizer(std::make_shared<DropResponses>());
        SDK::initialize(configuration);
    }
    // Waits until the library's work is done, its last upload included, so that it doesn't load
    // the figures that follow.
    ~Capture() {
        const auto core = SDK::currentCore();
        if (!core) return;
        SDK::shutdown();
        core->flush(std::chrono::steady_clock::now() + std::chrono::seconds(60));
    }
};

std::shared_ptr<NSMutableURLRequest> hostRequest(const std::string& url) {
    auto request = NSMutableURLRequest::requestWithURL(NSURL::URLWithString(url));
    request->setValue("application/json", "Accept");
    return request;
}

// range(0): response bytes; range(1): the Mode; range(2): spaced. Back to back (spaced 0), the
// library's work on one request (the body's text form, the uploads) overlaps the next, as it
// would in a host that never pauses; spaced, that work, the upload and its reply included, is let
// finish outside the timing before the next request, which leaves the latency the host itself
// waits for. Then every mode rests as long before its next request, so all start equally cold.
void BM_RequestOnLoopback(benchmark::State& state) {
    const long size = state.range(0);
    const auto mode = static_cast<Mode>(state.range(1));
    const bool spaced = state.range(2) != 0;
    Capture capture(mode);
    auto session =
        NSURLSession::sessionWithConfiguration(NSURLSessionConfiguration::defaultSessionConfiguration());
    const auto request = hostRequest(app().url("/body", size));
    // Without response events no upload carries the body; the request's event will do.
    const std::size_t uploadCarryingIt = mode == Mode::on ? static_cast<std::size_t>(size) : 1;
    std::mutex mutex;
    std::condition_variable changed;
    for (auto _ : state) {
        // Counted before the request: an upload after this carries its events, however soon.
        const int uploadsBefore = spaced ? ingest().countUploadsOf(uploadCarryingIt) : 0;
        bool done = false;
        long received = -1;
        session
            ->dataTaskWithRequest(
                request,
                [&](std::shared_ptr<NSData> data, std::shared_ptr<NSURLResponse>, std::shared_ptr<NSError>) {
                    std::lock_guard lock(mutex);
                    received = data ? static_cast<long>(data->length()) : -1;
                    done = true;
                    changed.notify_all();
                })
            ->resume();
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return done; });
        if (received != size) {
            state.SkipWithError("short response");
            break;
        }
        if (spaced) {
            state.PauseTiming();
            if (const auto core = SDK::currentCore()) {
                ingest().waitForUploadsBeyond(uploadsBefore);
                core->flush(std::chrono::steady_clock::now() + std::chrono::seconds(60));
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            state.ResumeTiming();
        }
    }
    session->finishTasksAndInvalidate();
    state.SetBytesProcessed(state.iterations() * size);
    state.SetLabel(labelFor(mode));
}

// Run with --benchmark_enable_random_interleaving=true, so that the repetitions of the baseline
// and of capture are spread over the same stretch of the machine's time.
BENCHMARK(BM_RequestOnLoopback)
    ->ArgNames({"bytes", "mode", "spaced"})
    ->ArgsProduct({{kKilobyte, kMegabyte}, {0, 1, 2}, {0}})
    ->Repetitions(9)
    ->MinTime(0.5)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond)
    ->ReportAggregatesOnly(true);
// Spaced by the library's upload interval, about a second each.
BENCHMARK(BM_RequestOnLoopback)
    ->ArgNames({"bytes", "mode", "spaced"})
    ->ArgsProduct({{kKilobyte, kMegabyte}, {0, 1, 2}, {1}})
    ->Iterations(8)
    ->Repetitions(3)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond)
    ->ReportAggregatesOnly(true);

// Counts what each task receives; keeps nothing.
class CountingDelegate final : public NSURLSessionDataDelegate {
public:
    void URLSession_dataTask_didReceiveData(const std::shared_ptr<NSURLSession>&,
                                            const std::shared_ptr<NSURLSessionDataTask>&,
                                            const std::shared_ptr<NSData>& data) override {
        received_.fetch_add(static_cast<long>(data->length()));
        received_.notify_all();
    }
    void URLSession_task_didCompleteWithError(const std::shared_ptr<NSURLSession>&,
                                              const std::shared_ptr<NSURLSessionTask>&,
                                              const std::shared_ptr<NSError>&) override {
        completed_.fetch_add(1);
        completed_.notify_all();
    }
    void waitForBytes(long total) const {
        for (long seen = received_.load(); seen < total; seen = received_.load()) received_.wait(seen);
    }
    void waitForCompletions(int total) const {
        for (int seen = completed_.load(); seen < total; seen = completed_.load()) completed_.wait(seen);
    }

private:
    std::atomic<long> received_{0};
    std::atomic<int> completed_{0};
};

std::size_t heapInUse() {
    const auto info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

// range(0): response bytes; range(1): the Mode. Starts kInFlight requests whose bodies, all but
// their last byte, have reached the host, and measures the heap they hold then.
void BM_MemoryHeldInFlight(benchmark::State& state) {
    constexpr int kInFlight = 16;
    const long size = state.range(0);
    const auto mode = static_cast<Mode>(state.range(1));
    Capture capture(mode);
    double held = 0;
    for (auto _ : state) {
        auto delegate = std::make_shared<CountingDelegate>();
        auto session = NSURLSession::sessionWithConfiguration(
            NSURLSessionConfiguration::defaultSessionConfiguration(), delegate, nullptr);
        std::vector<std::shared_ptr<NSURLSessionDataTask>> tasks;
        for (int i = 0; i < kInFlight; ++i)
            tasks.push_back(session->dataTaskWithRequest(hostRequest(app().url("/held", size))));
        ::malloc_trim(0);
        const std::size_t before = heapInUse();
        app().hold();
        for (const auto& task : tasks) task->resume();
        delegate->waitForBytes(kInFlight * size);
        const std::size_t during = heapInUse();
        app().release();
        delegate->waitForCompletions(kInFlight);
        session->finishTasksAndInvalidate();
        held += (static_cast<double>(during) - static_cast<double>(before)) / kInFlight;
    }
    state.counters["held_per_request"] = held / static_cast<double>(state.iterations());
    state.counters["held_per_body_byte"] =
        size > 0 ? held / static_cast<double>(state.iterations()) / size : 0.0;
    state.SetLabel(labelFor(mode));
}

BENCHMARK(BM_MemoryHeldInFlight)
    ->ArgNames({"bytes", "capture"})
    ->Args({kKilobyte, 0})
    ->Args({kKilobyte, 1})
    ->Args({kMegabyte, 0})
    ->Args({kMegabyte, 1})
    ->Iterations(3)
    ->Repetitions(3)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond)
    ->ReportAggregatesOnly(true);

}  // namespace
