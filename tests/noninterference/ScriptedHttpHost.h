#pragma once
// The scripted host of the network scenarios, and the origin it talks to.
//
// The origin is a loopback server of the run's own, with routes for every scenario (below). The
// host runs tasks on sessions of its own, each with a delegate that answers as the script says and
// writes down, task by task, every callback it gets: redirects offered, challenges, the response's
// status and header fields, the body's size and hash, and the end or the error's domain and code.
// At the end of the run it adds what the origin received, request by request (method, target,
// body size and hash, and the header fields of kNamedFields). URLs of the origin are written as
// "origin/...", so runs on different ports compare equal.
//
// Routes: /target (any method) answers 200 with the method and the body it got; /redirect?code=N
// answers N with Location /target; /chain?n=K redirects K times before /target; /auth wants Basic
// ada:secret; /slow sends a first piece, then the rest after a pause; /big sends 4 MB; /hang
// answers after two seconds.
//
// Threads: the main thread, which runs the main run loop while it waits.
#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/url/NSURLRequest.h"
#include "platform/url/NSURLSessionDelegate.h"
#include "tests/noninterference/Scenario.h"
#include "tests/support/LoopbackHttpServer.h"

namespace qlm_test {

enum class BodyKind { none, data, stream };

// One task as the script runs it.
struct HostTask {
    std::string target;  // a path on the origin, or kRefusedPort
    std::string method = "GET";
    BodyKind body = BodyKind::none;
    bool upload = false;  // an upload task, with the body as its data
    bool refuseRedirects = false;
    platform::NSURLSessionAuthChallengeDisposition challengeAnswer =
        platform::NSURLSessionAuthChallengePerformDefaultHandling;
    bool cancelAfterFirstData = false;
    double timeoutInterval = platform::NSURLRequest::kDefaultTimeoutInterval;
};

struct SessionSettings {
    std::vector<std::pair<std::string, std::string>> additionalHeaders = {};
    std::optional<double> timeoutIntervalForRequest = std::nullopt;
};

class ScriptedHttpHost {
public:
    // A URL on a port that nobody listens on.
    static constexpr const char* kRefusedPort = "refused-port";

    // Starts the origin; asks the runner to wait, with capture on, until every request the host
    // made is reported as one pair; adds the origin's requests at the end.
    explicit ScriptedHttpHost(ScenarioRun& run);

    // Runs `tasks` at once, each on a session of its own with its settings, and writes down what
    // each observed, in the order given, once all have ended.
    void play(const std::vector<std::pair<HostTask, SessionSettings>>& tasks);
    void play(const HostTask& task, const SessionSettings& settings = {}) { play({{task, settings}}); }

private:
    std::string originRelative(const std::string& url) const;

    ScenarioRun& run_;
    std::shared_ptr<LoopbackHttpServer> origin_;  // held by the end step too
    int tasksPlayed_ = 0;
    // Requests the host made: tasks played and redirects followed. Read by the capture check.
    std::shared_ptr<std::atomic<std::size_t>> requestsMade_ = std::make_shared<std::atomic<std::size_t>>(0);
};

}  // namespace qlm_test
