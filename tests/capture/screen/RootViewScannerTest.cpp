// The scanner: captures made off the main thread while the test thread, which is the main thread,
// serves the main queue; and, once, the library with its scanner and touch recognizers end to end.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>
#include <thread>

#include "capture/screen/RootViewScanner.h"
#include "capture/touch/TouchShim.h"
#include "platform/uikit/TouchScreen.h"
#include "platform/uikit/UIApplication.h"
#include "platform/uikit/UIScreen.h"
#include "platform/uikit/UIViewController.h"
#include "platform/uikit/UIWindow.h"
#include "tests/capture/screen/ScreenTestSupport.h"
#include "tests/capture/touch/TouchTestSupport.h"
#include "tests/support/RecordingSink.h"
#include "wire/qm_ios.pb.h"

using namespace platform;
using namespace qlm_test;
using quillmere::EventType;
using quillmere::RootViewScanner;
using std::chrono::milliseconds;

namespace {

class ControllerWithoutView : public UIViewController {
protected:
    void loadView() override {}
};

std::shared_ptr<UIWindow> windowShowing(std::shared_ptr<UIView> root) {
    auto window = UIView::make<UIWindow>(CGRectMake(0, 0, 390, 844));
    auto controller = std::make_shared<UIViewController>();
    controller->setView(std::move(root));
    window->setRootViewController(controller);
    return window;
}

std::size_t shimsOn(const UIWindow& window) {
    std::size_t n = 0;
    for (const auto& r : window.gestureRecognizers()) n += quillmere::TouchShim::isExactly(r.get());
    return n;
}

std::vector<qm::ios::PDFViewCapture> capturesIn(const RecordingSink& sink) {
    return sink.messages<qm::ios::PDFViewCapture>(EventType::pdfViewCapture);
}

class RootViewScannerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(UIApplication::sharedApplication()->windows().empty()) << "a window left by another test";
        savedScreen_ = UIScreen::mainScreen()->bounds();
    }
    void TearDown() override { UIScreen::mainScreen()->setBounds(savedScreen_); }

    std::shared_ptr<RootViewScanner> scanner(const quillmere::Configuration& configuration =
                                                 quillmere::Configuration("app-1")) {
        return RootViewScanner::make(sink_, configuration);
    }

    // One capture as the timer's thread makes it; exactly one event is expected of it.
    qm::ios::PDFViewCapture captureOnce(RootViewScanner& scanner) {
        const std::size_t before = sink_->count(EventType::pdfViewCapture);
        std::atomic<bool> done{false};
        std::thread capturer([&] {
            scanner.captureScreen();
            done = true;
        });
        EXPECT_TRUE(runMainLoopUntil([&] { return done.load(); }, milliseconds(20000)));
        capturer.join();
        const auto captures = capturesIn(*sink_);
        EXPECT_EQ(captures.size(), before + 1);
        return captures.size() > before ? captures.back() : qm::ios::PDFViewCapture();
    }

    const std::shared_ptr<RecordingSink> sink_ = std::make_shared<RecordingSink>();

private:
    CGRect savedScreen_;
};

TEST_F(RootViewScannerTest, DrawsTheRootViewOfEveryWindowThatHasOneLaterWindowsOnTop) {
    auto bare = UIView::make<UIWindow>(CGRectMake(0, 0, 390, 844));
    bare->addSubview(label(CGRectMake(0, 300, 300, 40), "WindowWithoutController"));
    auto viewless = UIView::make<UIWindow>(CGRectMake(0, 0, 390, 844));
    viewless->setRootViewController(std::make_shared<ControllerWithoutView>());
    auto first = coloredView(CGRectZero, kRed);
    first->addSubview(label(CGRectMake(0, 300, 300, 40), "FirstRoot"));
    auto firstWindow = windowShowing(first);  // windows start hidden; a hidden window still counts
    auto hidden = label(CGRectZero, "HiddenRoot");
    hidden->setHidden(true);
    auto hiddenWindow = windowShowing(hidden);
    auto second = UIView::make();
    second->addSubview(coloredView(CGRectMake(0, 0, 100, 100), kGreen));
    auto secondWindow = windowShowing(second);
    secondWindow->makeKeyAndVisible();

    const auto capture = captureOnce(*scanner());
    EXPECT_EQ(capture.width(), 390u);
    EXPECT_EQ(capture.height(), 844u);
    const auto document = onePage(NSData::dataWithString(capture.pdfdata()));
    const std::string text = document.text();
    EXPECT_NE(text.find("FirstRoot"), std::string::npos) << text;
    EXPECT_EQ(text.find("WindowWithoutController"), std::string::npos) << text;
    EXPECT_EQ(text.find("HiddenRoot"), std::string::npos) << text;
    const auto page = document.render();
    EXPECT_PIXEL(page, 50, 50, kGreen);
    EXPECT_PIXEL(page, 200, 50, kRed);
}

TEST_F(RootViewScannerTest, WithNoWindowsACaptureIsStillOneBlankPage) {
    const auto capture = captureOnce(*scanner());
    const auto document = onePage(NSData::dataWithString(capture.pdfdata()));
    const std::string text = document.text();
    EXPECT_EQ(text.find_first_not_of(" \t\r\n\f"), std::string::npos) << testing::PrintToString(text);
    const auto page = document.render();
    EXPECT_PIXEL(page, page.width / 2, page.height / 2, kWhite);
    EXPECT_EQ(capture.width(), 390u);
}

TEST_F(RootViewScannerTest, RedactionTagsAreThoseOfTheConfigurationWhenTheCoreWasMade) {
    quillmere::Configuration configuration("app-1");
    configuration.setRedactionTags({"secret"});
    const auto made = scanner(configuration);
    configuration.setRedactionTags({});

    auto root = UIView::make();
    auto secret = label(CGRectMake(0, 0, 300, 40), "TopSecret");
    secret->setAccessibilityIdentifier("secret");
    root->addSubview(secret);
    auto window = windowShowing(root);

    const auto text = onePage(NSData::dataWithString(captureOnce(*made).pdfdata())).text();
    EXPECT_EQ(text.find("TopSecret"), std::string::npos) << text;
}

TEST_F(RootViewScannerTest, OnTheMainThreadACaptureDoesNothing) {
    auto window = windowShowing(UIView::make());
    scanner()->captureScreen();  // would wait for itself if it went on
    EXPECT_EQ(sink_->count(EventType::pdfViewCapture), 0u);
}

struct ScreenSizeCase {
    CGFloat width, height;
    uint32_t wireWidth, wireHeight;
};

class ScreenSize : public RootViewScannerTest, public ::testing::WithParamInterface<ScreenSizeCase> {};

// Points, truncated; sizes no 32-bit field can hold come out as the nearest value it can.
TEST_P(ScreenSize, GoesOnTheWireInWholePoints) {
    const auto& c = GetParam();
    UIScreen::mainScreen()->setBounds(CGRectMake(0, 0, c.width, c.height));
    const auto capture = captureOnce(*scanner());
    EXPECT_EQ(capture.width(), c.wireWidth);
    EXPECT_EQ(capture.height(), c.wireHeight);
}

INSTANTIATE_TEST_SUITE_P(RootViewScanner, ScreenSize,
                         ::testing::Values(ScreenSizeCase{320.9, 568.99, 320, 568},
                                           ScreenSizeCase{1e10, 4294967295.5, UINT32_MAX, UINT32_MAX},
                                           ScreenSizeCase{std::numeric_limits<CGFloat>::quiet_NaN(), 0.4, 0,
                                                          0}));

// However often a window is scanned it carries one recognizer, which stop takes off again.
TEST_F(RootViewScannerTest, AWindowGetsOneTouchRecognizerUntilTheScannerStops) {
    auto window = windowShowing(UIView::make());
    const auto made = scanner();
    RootViewScanner::PendingCapture capture;
    made->scanWindows(capture);
    made->scanWindows(capture);
    EXPECT_EQ(shimsOn(*window), 1u);
    EXPECT_TRUE(made->trackedWindows().containsObject(window));
    made->stop();
    made->scanWindows(capture);
    EXPECT_EQ(shimsOn(*window), 0u);
}

// The library as a host runs it: its own scanner puts a recognizer on the window, pages and
// touches reach the ingest server, and at shutdown the recognizer leaves the window.
TEST_F(RootViewScannerTest, WithTheLibraryRunningPagesAndTouchesReachTheServerAndTheShimLeavesAtShutdown) {
    auto window = windowShowing(label(CGRectMake(0, 0, 300, 40), "Shown"));
    window->makeKeyAndVisible();
    RunningLibrary library(true);
    const auto pageSent = [&] {
        for (const auto& event : library.server().events())
            if (event.type() == "qm.ios.PDFViewCapture") return true;
        return false;
    };
    ASSERT_TRUE(runMainLoopUntil(pageSent, milliseconds(20000)));
    EXPECT_EQ(shimsOn(*window), 1u);
    TouchScreen(window).tap({10, 20});
    EXPECT_EQ(summaries(library.stop()), (std::vector<std::string>{"DOWN 10", "UP 10"}));
    EXPECT_EQ(shimsOn(*window), 0u);

    std::size_t pages = 0;
    for (const auto& event : library.server().events()) {
        if (event.type() != "qm.ios.PDFViewCapture") continue;
        ++pages;
        const auto text = onePage(NSData::dataWithString(innerMessage<qm::ios::PDFViewCapture>(event).pdfdata())).text();
        EXPECT_NE(text.find("Shown"), std::string::npos) << text;
    }
    EXPECT_GE(pages, 1u);
}

}  // namespace
