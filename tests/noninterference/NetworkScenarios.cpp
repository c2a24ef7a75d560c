// The network scenarios: the host's HTTP traffic through redirects, challenges, cancels, large
// bodies, failures and session settings.
#include <string>
#include <vector>

#include "tests/noninterference/Scenario.h"
#include "tests/noninterference/ScriptedHttpHost.h"

namespace qlm_test {
namespace {

using platform::NSURLSessionAuthChallengeCancelAuthenticationChallenge;
using platform::NSURLSessionAuthChallengeUseCredential;

constexpr const char* kSessionSettingsUnknown =
    "a URL protocol has no public way to learn the settings of its task's session "
    "(HTTPAdditionalHeaders, timeoutIntervalForRequest); see \"Known limits\" in the README";

// One task, on a session with `settings`.
Scenario single(std::string name, HostTask task, SessionSettings settings = {},
                std::string knownDifference = "") {
    return {std::move(name),
            [task, settings](ScenarioRun& run) { ScriptedHttpHost(run).play(task, settings); },
            std::move(knownDifference)};
}

std::vector<Scenario> networkScenarios() {
    std::vector<Scenario> scenarios;
    struct Shape {
        const char* name;
        const char* method;
        BodyKind body;
    };
    const Shape shapes[] = {{"get", "GET", BodyKind::none},
                            {"post_data", "POST", BodyKind::data},
                            {"post_stream", "POST", BodyKind::stream}};
    for (const int code : {301, 302, 303, 307, 308}) {
        for (const auto& shape : shapes) {
            for (const bool refuse : {false, true}) {
                HostTask task{.target = "/redirect?code=" + std::to_string(code),
                              .method = shape.method,
                              .body = shape.body,
                              .refuseRedirects = refuse};
                scenarios.push_back(single("redirect_" + std::to_string(code) + "_" + shape.name +
                                               (refuse ? "_refused" : "_followed"),
                                           task));
            }
        }
    }
    scenarios.push_back(single("redirect_chain_of_three", {.target = "/chain?n=3"}));
    scenarios.push_back(
        single("challenge_answered_with_credential",
               {.target = "/auth", .challengeAnswer = NSURLSessionAuthChallengeUseCredential}));
    scenarios.push_back(single("challenge_default_handling", {.target = "/auth"}));
    scenarios.push_back(single(
        "challenge_cancelled",
        {.target = "/auth", .challengeAnswer = NSURLSessionAuthChallengeCancelAuthenticationChallenge}));
    scenarios.push_back(single("task_cancelled_mid_body", {.target = "/slow", .cancelAfterFirstData = true}));
    scenarios.push_back(single("body_of_4_mb", {.target = "/big"}));
    scenarios.push_back(single("refused_port", {.target = ScriptedHttpHost::kRefusedPort}));
    scenarios.push_back(single("time_out", {.target = "/hang", .timeoutInterval = 0.5}));
    scenarios.push_back(single("upload_task", {.target = "/target", .method = "POST", .upload = true}));
    // A request time-out that isn't positive leaves the session's to apply.
    scenarios.push_back(single("session_settings", {.target = "/hang", .timeoutInterval = 0},
                               {.additionalHeaders = {{"X-Session", "a"}}, .timeoutIntervalForRequest = 0.5},
                               kSessionSettingsUnknown));
    scenarios.push_back(
        {"two_sessions_at_once",
         [](ScenarioRun& run) {
             ScriptedHttpHost host(run);
             host.play({{{.target = "/target?session=a"}, {.additionalHeaders = {{"X-Session", "a"}}}},
                        {{.target = "/target?session=b", .method = "POST", .body = BodyKind::data},
                         {.additionalHeaders = {{"X-Session", "b"}}}}});
         },
         kSessionSettingsUnknown});
    return scenarios;
}

const bool kRegistered = addScenarios(networkScenarios());

}  // namespace
}  // namespace qlm_test
