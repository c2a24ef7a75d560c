#pragma once
// A running library whose events reach a loopback ingest server, and the touch messages read back
// from what it received; windows shown with a touch screen of their own; summaries of messages.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "engine/SDK.h"
#include "platform/uikit/TouchScreen.h"
#include "platform/uikit/UIWindow.h"
#include "tests/engine/EngineTestSupport.h"
#include "wire/qm_ios.pb.h"

namespace qlm_test {

class RunningLibrary {
public:
    explicit RunningLibrary(bool viewScanning = false) {
        auto configuration = configurationFor(server_);
        configuration->setViewScanningEnabled(viewScanning);
        EXPECT_TRUE(quillmere::SDK::initialize(configuration));
        core_ = quillmere::SDK::currentCore();
    }
    ~RunningLibrary() {
        if (core_) stop();
    }
    RunningLibrary(const RunningLibrary&) = delete;
    RunningLibrary& operator=(const RunningLibrary&) = delete;

    const IngestServer& server() const { return server_; }

    // Shuts the library down and gives the touch messages the server got, in order.
    std::vector<qm::ios::TouchEvent> stop() {
        shutDownAndSettle(*core_);
        core_.reset();
        std::vector<qm::ios::TouchEvent> touches;
        for (const auto& event : server_.events()) {
            if (event.type() == "qm.ios.TouchEvent")
                touches.push_back(innerMessage<qm::ios::TouchEvent>(event));
        }
        return touches;
    }

private:
    IngestServer server_;
    std::shared_ptr<quillmere::Core> core_;
};

// "DOWN 10", "MOVE 12 <3 4>", "UP 15": the type, the head's x and the x of each carried move.
inline std::string summary(const qm::ios::TouchEvent& message) {
    static const char* const names[] = {"DOWN", "UP", "MOVE"};
    std::string text = names[message.type()];
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, " %g", static_cast<double>(message.x()));
    text += buffer;
    if (message.type() != qm::ios::TouchEvent::MOVE) return text;
    text += " <";
    for (int i = 0; i < message.moves_size(); ++i) {
        std::snprintf(buffer, sizeof buffer, "%s%g", i ? " " : "", static_cast<double>(message.moves(i).x()));
        text += buffer;
    }
    return text + ">";
}

inline std::vector<std::string> summaries(const std::vector<qm::ios::TouchEvent>& messages) {
    std::vector<std::string> lines;
    for (const auto& message : messages) lines.push_back(summary(message));
    return lines;
}

inline std::shared_ptr<platform::UIWindow> shownWindow() {
    auto window = platform::UIView::make<platform::UIWindow>(platform::CGRectMake(0, 0, 400, 800));
    window->makeKeyAndVisible();
    return window;
}

}  // namespace qlm_test
