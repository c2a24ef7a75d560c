// A headless demo host: the part of an app that starts Quillmere, identifies its user, shows a
// screen (a sign-in form over a scrolling list), calls its backend (a loopback endpoint in this
// process), logs, plays a user's touches on the screen, lets the main run loop turn for a while,
// asks for the replay URL and shuts the library down.
//
//   quillmere-demo --server http://127.0.0.1:PORT/i [--app-id ID] [--seconds N]
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "engine/Configuration.h"
#include "engine/SDK.h"
#include "examples/demo-host/DemoEndpoint.h"
#include "examples/demo-host/DemoRequests.h"
#include "examples/demo-host/DemoScreen.h"
#include "examples/demo-host/TouchScript.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchSourceTimer.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSRunLoop.h"
#include "platform/uikit/UIDevice.h"

using namespace platform;
using quillmere::Configuration;
using quillmere::SDK;

namespace {

struct Options {
    std::string serverURL;
    std::string appID = "demo-app";
    double seconds = 5.0;
};

bool parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--server" && hasValue) {
            options.serverURL = argv[++i];
        } else if (arg == "--app-id" && hasValue) {
            options.appID = argv[++i];
        } else if (arg == "--seconds" && hasValue) {
            options.seconds = std::atof(argv[++i]);
        } else {
            return false;
        }
    }
    return !options.serverURL.empty() && options.seconds > 0;
}

// Runs the main run loop until `done` or `seconds` pass.
void runMainLoop(double seconds, const std::atomic<bool>* done = nullptr) {
    const double until = NSDate::date()->timeIntervalSince1970() + seconds;
    while (NSDate::date()->timeIntervalSince1970() < until && !(done && done->load())) {
        CFRunLoopRunInMode(0.05, false);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr, "usage: %s --server URL [--app-id ID] [--seconds N]\n", argv[0]);
        return 2;
    }

    UIDevice::currentDevice()->setModel("iPhone");
    UIDevice::currentDevice()->setSystemVersion("17.4");

    auto configuration = std::make_shared<Configuration>(options.appID);
    configuration->setServerURL(options.serverURL);
    // Held until the library runs: the host may call before initialize.
    SDK::addLog("INFO", {"demo host starting"});
    if (!SDK::initialize(configuration)) {
        std::fprintf(stderr, "Quillmere did not start\n");
        return 1;
    }
    SDK::identify("user-42", std::map<std::string, std::string>{
                                 {"name", "Ada Lovelace"}, {"email", "ada@example.com"}, {"plan", "pro"}});

    // The app's window, as an app shows it once it has launched; the library records it from here on.
    const auto screen = demo::DemoScreen::make();
    // The user scrolls the list now and then, so the recorded pages differ.
    auto scroller = DispatchSourceTimer::makeTimerSource(DispatchTimerFlags::none, DispatchQueue::main());
    scroller->schedule(DispatchTime::now() + DispatchTimeInterval::seconds(2),
                       DispatchTimeInterval::seconds(2));
    scroller->setEventHandler([screen = screen.get()] { screen->scrollList(); });
    scroller->activate();
    // The user's fingers, from just after the library's first capture has put its recognizer on the
    // window, spread over the rest of the run.
    const auto fingers = demo::TouchScript::start(*screen, 1.2);

    // The app's API calls, which the library records as they pass.
    const auto backend = demo::DemoEndpoint::start();
    auto callsDone = std::make_shared<std::atomic<bool>>(backend == nullptr);
    if (backend) demo::makeDemoRequests(*backend, callsDone);

    // The app's own work: a timer on a background queue that hops to the main thread now and then.
    auto ticks = std::make_shared<std::atomic<int>>(0);
    auto timer = DispatchSourceTimer::makeTimerSource(DispatchTimerFlags::none, DispatchQueue::global());
    timer->schedule(DispatchTime::now(), DispatchTimeInterval::milliseconds(500));
    timer->setEventHandler([ticks] {
        dispatch_sync(DispatchQueue::main(), [ticks] {
            const int n = ++*ticks;
            SDK::addLog(n % 3 == 0 ? "WARN" : "LOG", {"tick", std::to_string(n)});
            // The app's own console output, which the library records as it passes.
            std::printf("demo: synced the cart (tick %d)\n", n);
            if (n % 4 == 0) std::fprintf(stderr, "demo: the cart service answered slowly (tick %d)\n", n);
        });
    });
    timer->activate();

    // Filled on the thread of the first accepting reply; the main thread reads it after the flag.
    struct Reply {
        std::string url;
        std::atomic<bool> arrived{false};
    };
    auto reply = std::make_shared<Reply>();
    SDK::getSessionURL([reply](std::string url) {
        reply->url = std::move(url);
        reply->arrived.store(true);
    });

    runMainLoop(options.seconds);
    runMainLoop(5.0, callsDone.get());
    runMainLoop(5.0, &reply->arrived);  // the first accepted upload comes about a second after start
    timer->cancel();
    scroller->cancel();
    fingers->stop();
    SDK::shutdown();

    if (!reply->arrived.load() || reply->url.empty()) {
        std::fprintf(stderr, "No replay URL: the ingest server accepted no upload\n");
        return 1;
    }
    std::printf("Replay URL: %s\n", reply->url.c_str());
    return 0;
}
