#pragma once
// The demo app's screen: a sign-in form over a scrolling list of recent activity, in one key
// window the size of the screen, so there is something to record. The password field is secure
// and holds text, which the recording must leave out.
//
// Main thread for everything. The screen keeps its window alive for as long as it lives.
#include <memory>

#include "platform/uikit/UIScrollView.h"
#include "platform/uikit/UITextField.h"
#include "platform/uikit/UIWindow.h"

namespace demo {

class DemoScreen {
public:
    // Sets the main screen to 390 by 844 points and shows the window as the key window.
    static std::unique_ptr<DemoScreen> make();

    // Moves the list on by about one row, back to the top after the last one, so that pages
    // recorded a few seconds apart differ.
    void scrollList();

    const std::shared_ptr<platform::UIWindow>& window() const { return window_; }
    const std::shared_ptr<platform::UITextField>& emailField() const { return email_; }
    // Secure entry: once it holds text, the recording leaves the field out of its pages.
    const std::shared_ptr<platform::UITextField>& passwordField() const { return password_; }
    const std::shared_ptr<platform::UIView>& signInButton() const { return signIn_; }
    const std::shared_ptr<platform::UIScrollView>& list() const { return list_; }

private:
    DemoScreen() = default;

    std::shared_ptr<platform::UIWindow> window_;
    std::shared_ptr<platform::UIScrollView> list_;
    std::shared_ptr<platform::UITextField> email_;
    std::shared_ptr<platform::UITextField> password_;
    std::shared_ptr<platform::UIView> signIn_;
};

}  // namespace demo
