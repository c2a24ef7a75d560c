// A host that knows Quillmere only as installed: it starts the library against the endpoint it is
// given, logs one line, waits for the replay URL, shuts the library down and prints the URL.
//
//   consumer SERVER_URL APP_ID     exit 0 once a replay URL came, 1 otherwise
#include <quillmere/QuillmereVersion.h>
#include <quillmere/Request.h>
#include <quillmere/Response.h>
#include <quillmere/SDK.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <string>

namespace {

// The host's own sanitizer, built from the public headers alone.
class HeaderlessRequests final : public quillmere::RequestSanitizer {
public:
    std::shared_ptr<quillmere::Request> sanitize(std::shared_ptr<quillmere::Request> request) override {
        request->setHeaders(std::nullopt);
        return request;
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s SERVER_URL APP_ID\n", argv[0]);
        return 2;
    }
    auto configuration = std::make_shared<quillmere::Configuration>(argv[2]);
    configuration->setServerURL(argv[1]);
    // This host never turns its main run loop, which screen and log capture need.
    configuration->setViewScanningEnabled(false);
    configuration->setLogCaptureEnabled(false);
    configuration->setRequestSanitizer(std::make_shared<HeaderlessRequests>());
    if (!quillmere::SDK::initialize(configuration)) return 1;
    quillmere::SDK::addLog("INFO", {"installed consumer", argv[2]});

    auto replay = std::make_shared<std::promise<std::string>>();
    auto url = replay->get_future();
    quillmere::SDK::getSessionURL([replay](std::string url) { replay->set_value(std::move(url)); });
    const bool arrived = url.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    quillmere::SDK::shutdown();

    const std::string text = arrived ? url.get() : "";
    std::printf("Quillmere %.1f replay URL: %s\n", QuillmereVersionNumber, text.c_str());
    return text.empty() ? 1 : 0;
}
