// What capture threads pay for an event, and what one send costs up to handing its batch to the URL
// session, building and encoding the messages included (a loopback server takes the uploads).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "capture/log/LogHandler.h"
#include "engine/Configuration.h"
#include "engine/Core.h"
#include "engine/Session.h"
#include "tests/support/LoopbackHttpServer.h"
#include "upload/Uploader.h"

using namespace quillmere;

namespace {

qlm_test::LoopbackHttpServer& ingest() {
    static auto* server = [] {
        auto* made = new qlm_test::LoopbackHttpServer();
        made->route("POST", "/i",
                    [](const qlm_test::HttpRequest&) { return qlm_test::HttpResponse::text(200, ""); });
        made->start();
        return made;
    }();
    return *server;
}

// A Core that is made but not started: nothing drains its buffer, so events stay countable.
std::shared_ptr<Core> idleCore() {
    auto configuration = std::make_shared<Configuration>("bench");
    configuration->setServerURL(ingest().url("/i"));
    return Core::make(Session::make("bench"), configuration);
}

const qm::core::LogEvent kLogEvent = LogHandler::logEventFrom("INFO", {"user tapped checkout", "cart=3"});

// Sorted per-call times as counters: the median is the figure, p99 shows the scheduler's share.
void reportPerCall(benchmark::State& state, std::vector<double>& nanoseconds) {
    std::sort(nanoseconds.begin(), nanoseconds.end());
    state.counters["median_ns"] = nanoseconds[nanoseconds.size() / 2];
    state.counters["p99_ns"] = nanoseconds[nanoseconds.size() * 99 / 100];
}

// Times `call(prepared)` alone, `prepare()` being made before the clock starts.
template <class Prepare, class Call>
void timeEachCall(benchmark::State& state, Prepare prepare, Call call) {
    std::vector<double> nanoseconds;
    nanoseconds.reserve(static_cast<std::size_t>(state.max_iterations));
    for (auto _ : state) {
        auto prepared = prepare();
        const auto start = std::chrono::steady_clock::now();
        call(std::move(prepared));
        const auto end = std::chrono::steady_clock::now();
        nanoseconds.push_back(std::chrono::duration<double, std::nano>(end - start).count());
    }
    reportPerCall(state, nanoseconds);
}

// What a capture thread pays per event: the stamp and the append to the buffer. The capture has
// built its message already and hands it over, as capture code does.
void BM_AddEventCallerCost(benchmark::State& state) {
    auto core = idleCore();
    timeEachCall(
        state, [] { return kLogEvent; },
        [&](qm::core::LogEvent message) { core->addEvent(EventType::logEvent, std::move(message)); });
}
BENCHMARK(BM_AddEventCallerCost)->Iterations(200000)->Repetitions(5)->ReportAggregatesOnly(true);

// A log event as a capture hands it over: built, still to encode.
class LogCapture final : public EventSink::Capture {
public:
    google::protobuf::Message* message() noexcept override { return &message_; }

private:
    qm::core::LogEvent message_ = kLogEvent;
};

qm::Event bufferedEvent(uint32_t seqID, std::size_t payloadBytes) {
    qm::Event event;
    event.set_type(payloadBytes > 1000 ? "qm.ios.PDFViewCapture" : "qm.core.LogEvent");
    event.set_time(1700000000000.0 + seqID);
    event.set_timeoffset(seqID);
    event.set_seqid(seqID);
    std::string data(payloadBytes, '\0');
    for (std::size_t i = 0; i < payloadBytes; ++i) data[i] = static_cast<char>((i * 131 + seqID) & 0xFF);
    event.set_data(std::move(data));
    return event;
}

// One send as stop() makes it: the batch is built, listed, encoded and handed to the URL session.
// range(1) 0: log events as captures hand them over, each message encoded by the send; else events
// whose data of that many bytes is encoded already.
void BM_Send(benchmark::State& state) {
    const auto events = static_cast<uint32_t>(state.range(0));
    const auto payload = static_cast<std::size_t>(state.range(1));
    auto uploader = Uploader::make(Session::make("bench"), ingest().url("/i"), {});
    std::vector<qm::Event> prepared;
    for (uint32_t i = 0; i < events; ++i) prepared.push_back(bufferedEvent(i, payload));
    std::size_t sent = ingest().requestCount();
    for (auto _ : state) {
        state.PauseTiming();
        for (const auto& event : prepared) {
            if (payload == 0) {
                uploader->append(event, std::make_shared<LogCapture>());
            } else {
                uploader->append(event);
            }
        }
        state.ResumeTiming();
        uploader->stop();
        state.PauseTiming();
        // One upload at a time, so the server's work stays out of the next measurement.
        ingest().waitForRequests(++sent, std::chrono::milliseconds(10000));
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * events *
                            static_cast<int64_t>(payload));
}
BENCHMARK(BM_Send)
    ->Args({1000, 0})
    ->Args({10, 100 * 1024})
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(50)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

}  // namespace
