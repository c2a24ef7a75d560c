#pragma once
// The demo user's fingers: the app's gesture recognizers on the demo screen (a tap on the email
// field starts editing, a tap on Sign in signs in, a pan scrolls the list) and a script of touches
// played on the main thread through the window's sendEvent:, one event every 30 ms: typing a user
// name and a password (kPassword, which the recording must never hold) into the form, a tap on
// Sign in, a drag through the list and a two-finger gesture, with pauses between them so the
// recording shows each.
//
// Main thread for everything; the screen must outlive the script.
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "examples/demo-host/DemoScreen.h"
#include "platform/dispatch/DispatchSourceTimer.h"
#include "platform/uikit/TouchScreen.h"
#include "platform/uikit/UITextField.h"

namespace demo {

class TouchScript {
public:
    // What the user types into the secure field; scripts/demo checks the recording for it.
    static constexpr const char* kPassword = "correct horse battery staple";

    // Installs the app's recognizers and starts playing after `delaySeconds`.
    static std::unique_ptr<TouchScript> start(DemoScreen& screen, double delaySeconds);
    ~TouchScript();

    void stop();
    bool finished() const { return steps_.empty(); }

private:
    explicit TouchScript(DemoScreen& screen);
    void installRecognizers();
    void script();
    void pause(int ticks);
    void tapOn(const platform::UIView& view);
    // A tap on `field`, then `text` a key at a time.
    void type(const std::shared_ptr<platform::UITextField>& field, const std::string& text);

    // All main thread only; the timer's handler runs on the main queue.
    DemoScreen& screen_;
    platform::TouchScreen touches_;
    std::deque<std::function<void()>> steps_;
    std::shared_ptr<platform::DispatchSourceTimer> timer_;
    std::vector<platform::id> targets_;  // the recognizers' targets, which they hold weakly
};

}  // namespace demo
