#include "tests/noninterference/ScriptedHttpHost.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <set>

#include "platform/foundation/NSString.h"
#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSInputStream.h"
#include "platform/url/NSURLSession.h"
#include "platform/url/NSURLSessionDataDelegate.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Wait.h"
#include "wire/qm_network.pb.h"

namespace qlm_test {
namespace {

using namespace platform;

constexpr const char* kBody = "card=4111&next=/a b";
constexpr std::size_t kBigBody = 4 * 1024 * 1024;
// What the origin's record shows of each request, besides method, target and body.
constexpr const char* kNamedFields[] = {"Accept",       "Authorization",     "Content-Length",
                                        "Content-Type", "Transfer-Encoding", "X-Session"};

std::string digest(std::string_view bytes) {
    char hex[17];
    std::snprintf(hex, sizeof hex, "%016zx", std::hash<std::string_view>{}(bytes));
    return std::to_string(bytes.size()) + " bytes #" + hex;
}

// Every request the host made (its tasks, and the redirects it followed, each a request of its
// own) is reported, each as exactly one request and one response, numbered from ios-0 on.
bool everyRequestReportedAsOnePair(const std::vector<qm::Event>& events, std::size_t made) {
    std::multiset<std::string> requests, responses;
    for (const auto& event : events) {
        if (event.type() == "qm.network.RequestEvent") {
            qm::network::RequestEvent message;
            if (message.ParseFromString(event.data())) requests.insert(message.reqid());
        } else if (event.type() == "qm.network.ResponseEvent") {
            qm::network::ResponseEvent message;
            if (message.ParseFromString(event.data())) responses.insert(message.reqid());
        }
    }
    std::multiset<std::string> numbered;
    for (std::size_t i = 0; i < made; ++i) numbered.insert("ios-" + std::to_string(i));
    return made > 0 && requests == numbered && responses == numbered;
}

class TranscribingDelegate final : public NSURLSessionDataDelegate {
public:
    TranscribingDelegate(HostTask task, std::function<std::string(const std::string&)> relative)
        : task_(std::move(task)), relative_(std::move(relative)) {}

    void URLSession_task_willPerformHTTPRedirection_newRequest_completionHandler(
        const std::shared_ptr<NSURLSession>&, const std::shared_ptr<NSURLSessionTask>&,
        const std::shared_ptr<NSHTTPURLResponse>& response, const std::shared_ptr<NSURLRequest>& request,
        std::function<void(std::shared_ptr<NSURLRequest>)> completion) override {
        const auto body = request->HTTPBody();
        note("redirect " + std::to_string(response ? response->statusCode() : 0) + " to " +
             request->HTTPMethod() + " " + relative_(request->URL()->absoluteString()) +
             (body ? " with " + digest(body->view()) : "") +
             (request->HTTPBodyStream() ? " with a stream" : ""));
        if (!task_.refuseRedirects) ++followed_;
        completion(task_.refuseRedirects ? nullptr : request);
    }
    void URLSession_task_didReceiveChallenge_completionHandler(
        const std::shared_ptr<NSURLSession>&, const std::shared_ptr<NSURLSessionTask>&,
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge,
        NSURLSessionChallengeCompletion completion) override {
        const auto& space = challenge->protectionSpace();
        note("challenge " + space->authenticationMethod() + " realm " + space->realm().value_or("-") +
             " failures " + std::to_string(challenge->previousFailureCount()));
        std::shared_ptr<NSURLCredential> credential;
        if (task_.challengeAnswer == NSURLSessionAuthChallengeUseCredential)
            credential = NSURLCredential::credentialWithUser("ada", "secret", NSURLCredentialPersistenceNone);
        completion(task_.challengeAnswer, credential);
    }
    void URLSession_dataTask_didReceiveResponse_completionHandler(
        const std::shared_ptr<NSURLSession>&, const std::shared_ptr<NSURLSessionDataTask>&,
        const std::shared_ptr<NSURLResponse>& response,
        std::function<void(NSURLSessionResponseDisposition)> completion) override {
        flushBody();
        std::string line = "response";
        if (auto http = std::dynamic_pointer_cast<NSHTTPURLResponse>(response)) {
            std::map<std::string, std::string> fields;
            for (const auto& [key, value] : *http->allHeaderFields())
                fields[NSStringValue(key).value_or("?")] = NSStringValue(value).value_or("?");
            line += " " + std::to_string(http->statusCode());
            for (const auto& [name, value] : fields) line += " " + name + "=" + relative_(value);
        }
        note(line);
        completion(NSURLSessionResponseAllow);
    }
    void URLSession_dataTask_didReceiveData(const std::shared_ptr<NSURLSession>&,
                                            const std::shared_ptr<NSURLSessionDataTask>& task,
                                            const std::shared_ptr<NSData>& data) override {
        bool first;
        {
            std::lock_guard lock(mutex_);
            first = !receivedAny_;
            receivedAny_ = true;
            body_.append(data->view());
        }
        if (first && task_.cancelAfterFirstData) task->cancel();
    }
    void URLSession_task_didCompleteWithError(const std::shared_ptr<NSURLSession>&,
                                              const std::shared_ptr<NSURLSessionTask>&,
                                              const std::shared_ptr<NSError>& error) override {
        flushBody();
        note(error ? "error " + error->domain() + " " + std::to_string(error->code()) : "finished");
        std::lock_guard lock(mutex_);
        done_ = true;
    }

    bool done() const {
        std::lock_guard lock(mutex_);
        return done_;
    }
    std::size_t redirectsFollowed() const { return followed_; }
    std::vector<std::string> lines() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }

private:
    void note(std::string line) {
        std::lock_guard lock(mutex_);
        lines_.push_back("  " + std::move(line));
    }
    // The body so far as one line: how the platform cut it into pieces is nothing a host relies on.
    void flushBody() {
        std::lock_guard lock(mutex_);
        if (!receivedAny_) return;
        lines_.push_back("  body " + digest(body_));
        body_.clear();
        receivedAny_ = false;
    }

    const HostTask task_;
    const std::function<std::string(const std::string&)> relative_;
    std::atomic<std::size_t> followed_{0};
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;  // guarded by mutex_
    std::string body_;                // guarded by mutex_; received since the last response
    bool receivedAny_ = false;        // guarded by mutex_
    bool done_ = false;               // guarded by mutex_
};

HttpResponse redirectTo(int status, const std::string& location) {
    return HttpResponse::text(status, "moved " + std::to_string(status)).withHeader("Location", location);
}

std::shared_ptr<LoopbackHttpServer> startOrigin() {
    auto origin = std::make_shared<LoopbackHttpServer>();
    origin->route("*", "/target", [](const HttpRequest& request) {
        return HttpResponse::text(200, request.method + " " + request.body).withHeader("X-Origin", "target");
    });
    origin->route("*", "/redirect", [](const HttpRequest& request) {
        return redirectTo(std::stoi(request.query.substr(request.query.find('=') + 1)), "/target");
    });
    origin->route("GET", "/chain", [](const HttpRequest& request) {
        const int left = std::stoi(request.query.substr(request.query.find('=') + 1));
        return redirectTo(302, left > 1 ? "/chain?n=" + std::to_string(left - 1) : "/target");
    });
    origin->route("GET", "/auth", [](const HttpRequest& request) {
        if (request.header("Authorization") == "Basic YWRhOnNlY3JldA==") return HttpResponse::text(200, "hi");
        return HttpResponse::text(401, "who?").withHeader("WWW-Authenticate", "Basic realm=\"test\"");
    });
    origin->route("GET", "/slow", [](const HttpRequest&) {
        HttpResponse response = HttpResponse::text(200, "first piece");
        response.chunks.push_back("the rest");
        response.delayBetweenChunks = std::chrono::seconds(5);  // cut short when the origin stops
        return response;
    });
    origin->route("GET", "/big", [](const HttpRequest&) {
        std::string body(kBigBody, 'x');
        for (std::size_t i = 0; i < body.size(); i += 997) body[i] = static_cast<char>('a' + i % 26);
        return HttpResponse::text(200, std::move(body), "application/octet-stream");
    });
    origin->route("GET", "/hang", [](const HttpRequest&) {
        HttpResponse response = HttpResponse::text(200, "late");
        response.delayBeforeReply = std::chrono::seconds(2);
        return response;
    });
    origin->start();
    return origin;
}

std::string describe(const HttpRequest& request) {
    std::string line = "origin got " + request.method + " " + request.target;
    if (!request.body.empty() || request.chunked) line += " with " + digest(request.body);
    if (request.chunked) line += " chunked";
    for (const char* name : kNamedFields)
        if (const auto value = request.header(name)) line += std::string(" ") + name + "=" + *value;
    return line;
}

}  // namespace

ScriptedHttpHost::ScriptedHttpHost(ScenarioRun& run) : run_(run), origin_(startOrigin()) {
    run_.expectCapture([made = requestsMade_](const std::vector<qm::Event>& events) {
        return everyRequestReportedAsOnePair(events, made->load());
    });
    run_.atEnd([origin = origin_, &transcript = run_.transcript()] {
        // Tasks that ran at once reach the origin in any order; sorted, a duplicate still shows.
        std::vector<std::string> lines;
        for (const auto& request : origin->requests()) lines.push_back(describe(request));
        std::sort(lines.begin(), lines.end());
        for (auto& line : lines) transcript.add(std::move(line));
        origin->stop();
    });
}

std::string ScriptedHttpHost::originRelative(const std::string& url) const {
    const std::string base = origin_->url("");
    return url.starts_with(base) ? "origin" + url.substr(base.size()) : url;
}

void ScriptedHttpHost::play(const std::vector<std::pair<HostTask, SessionSettings>>& tasks) {
    std::vector<std::shared_ptr<TranscribingDelegate>> delegates;
    std::vector<std::shared_ptr<NSURLSession>> sessions;
    std::vector<std::shared_ptr<NSURLSessionTask>> started;
    for (const auto& [task, settings] : tasks) {
        auto configuration = NSURLSessionConfiguration::defaultSessionConfiguration();
        if (!settings.additionalHeaders.empty())
            configuration->setHTTPAdditionalHeaders(
                NSDictionary::dictionaryWithStrings(settings.additionalHeaders));
        if (settings.timeoutIntervalForRequest)
            configuration->setTimeoutIntervalForRequest(*settings.timeoutIntervalForRequest);
        auto delegate = std::make_shared<TranscribingDelegate>(
            task, [this](const std::string& url) { return originRelative(url); });
        auto session = NSURLSession::sessionWithConfiguration(configuration, delegate, nullptr);

        const std::string url = task.target == kRefusedPort
                                    ? "http://127.0.0.1:" + std::to_string(unusedLoopbackPort()) + "/nobody"
                                    : origin_->url(task.target);
        auto request = NSMutableURLRequest::requestWithURL(NSURL::URLWithString(url));
        request->setHTTPMethod(task.method);
        request->setTimeoutInterval(task.timeoutInterval);
        request->setValue("text/plain", "Accept");
        const auto content = NSData::dataWithString(kBody);
        if (task.body == BodyKind::data) request->setHTTPBody(content);
        if (task.body == BodyKind::stream)
            request->setHTTPBodyStream(NSInputStream::inputStreamWithData(content));
        std::shared_ptr<NSURLSessionTask> made;
        if (task.upload) {
            made = session->uploadTaskWithRequest(request, content);
        } else {
            made = session->dataTaskWithRequest(request);
        }
        delegates.push_back(delegate);
        sessions.push_back(session);
        started.push_back(made);
    }
    for (const auto& task : started) task->resume();
    const bool ended = runMainLoopUntil(
        [&] {
            return std::all_of(delegates.begin(), delegates.end(), [](const auto& d) { return d->done(); });
        },
        std::chrono::seconds(30));
    *requestsMade_ += tasks.size();
    for (const auto& delegate : delegates) *requestsMade_ += delegate->redirectsFollowed();
    for (std::size_t i = 0; i < tasks.size(); ++i) {
        const auto& task = tasks[i].first;
        run_.transcript().add("task " + std::to_string(++tasksPlayed_) + ": " + task.method + " " +
                              task.target + (task.body == BodyKind::data ? " with data" : "") +
                              (task.body == BodyKind::stream ? " with a stream" : "") +
                              (task.upload ? " as an upload" : ""));
        for (auto& line : delegates[i]->lines()) run_.transcript().add(std::move(line));
    }
    if (!ended) run_.transcript().add("the tasks did not all end in time");
    for (const auto& session : sessions) session->finishTasksAndInvalidate();
}

}  // namespace qlm_test
