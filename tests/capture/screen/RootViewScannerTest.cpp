// The scanner with a real Core: captures made off the main thread while the test thread, which is
// the main thread, serves the main queue.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>
#include <thread>

#include "capture/screen/RootViewScanner.h"
#include "platform/uikit/UIApplication.h"
#include "platform/uikit/UIScreen.h"
#include "platform/uikit/UIViewController.h"
#include "platform/uikit/UIWindow.h"
#include "tests/capture/screen/ScreenTestSupport.h"
#include "tests/engine/EngineTestSupport.h"
#include "wire/qm_ios.pb.h"

using namespace platform;
using namespace qlm_test;
using quillmere::Core;
using std::chrono::milliseconds;

namespace {

constexpr std::string_view kCaptureType = "qm.ios.PDFViewCapture";

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

std::vector<qm::ios::PDFViewCapture> capturesIn(const std::vector<qm::Event>& events) {
    std::vector<qm::ios::PDFViewCapture> captures;
    for (const auto& event : events) {
        if (event.type() == kCaptureType) captures.push_back(innerMessage<qm::ios::PDFViewCapture>(event));
    }
    return captures;
}

class RootViewScannerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(UIApplication::sharedApplication()->windows().empty()) << "a window left by another test";
        savedScreen_ = UIScreen::mainScreen()->bounds();
    }
    void TearDown() override { UIScreen::mainScreen()->setBounds(savedScreen_); }

    // A Core that is never started: its events stay in the uploader's buffer.
    static std::shared_ptr<Core> idleCore(std::shared_ptr<quillmere::Configuration> configuration = nullptr) {
        if (!configuration) configuration = std::make_shared<quillmere::Configuration>("app-1");
        configuration->setServerURL("http://127.0.0.1:9/i");
        auto core = Core::make(quillmere::Session::make("app-1"), configuration);
        EXPECT_TRUE(core);
        return core;
    }

    // One capture as the timer's thread makes it; exactly one event is expected of it.
    static qm::ios::PDFViewCapture captureOnce(Core& core) {
        const std::size_t before = core.uploader()->eventBufferCount();
        std::atomic<bool> done{false};
        std::thread capturer([&] {
            core.viewScanner()->captureScreen();
            done = true;
        });
        EXPECT_TRUE(runMainLoopUntil([&] { return done.load(); }, milliseconds(20000)));
        capturer.join();
        dispatch_sync(core.queue(), [] {});
        const auto events = core.uploader()->eventBuffer();
        EXPECT_EQ(events.size(), before + 1);
        if (events.size() <= before) return {};
        EXPECT_EQ(events.back().type(), kCaptureType);
        return innerMessage<qm::ios::PDFViewCapture>(events.back());
    }

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

    auto core = idleCore();
    const auto capture = captureOnce(*core);
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
    auto core = idleCore();
    const auto capture = captureOnce(*core);
    const auto document = onePage(NSData::dataWithString(capture.pdfdata()));
    const std::string text = document.text();
    EXPECT_EQ(text.find_first_not_of(" \t\r\n\f"), std::string::npos) << testing::PrintToString(text);
    const auto page = document.render();
    EXPECT_PIXEL(page, page.width / 2, page.height / 2, kWhite);
    EXPECT_EQ(capture.width(), 390u);
}

TEST_F(RootViewScannerTest, RedactionTagsAreThoseOfTheConfigurationWhenTheCoreWasMade) {
    auto configuration = std::make_shared<quillmere::Configuration>("app-1");
    configuration->setRedactionTags({"secret"});
    auto core = idleCore(configuration);
    configuration->setRedactionTags({});

    auto root = UIView::make();
    auto secret = label(CGRectMake(0, 0, 300, 40), "TopSecret");
    secret->setAccessibilityIdentifier("secret");
    root->addSubview(secret);
    auto window = windowShowing(root);

    const auto text = onePage(NSData::dataWithString(captureOnce(*core).pdfdata())).text();
    EXPECT_EQ(text.find("TopSecret"), std::string::npos) << text;
}

TEST_F(RootViewScannerTest, OnTheMainThreadACaptureDoesNothing) {
    auto window = windowShowing(UIView::make());
    auto core = idleCore();
    core->viewScanner()->captureScreen();  // would wait for itself if it went on
    dispatch_sync(core->queue(), [] {});
    EXPECT_EQ(core->uploader()->eventBufferCount(), 0u);
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
    auto core = idleCore();
    const auto capture = captureOnce(*core);
    EXPECT_EQ(capture.width(), c.wireWidth);
    EXPECT_EQ(capture.height(), c.wireHeight);
}

INSTANTIATE_TEST_SUITE_P(RootViewScanner, ScreenSize,
                         ::testing::Values(ScreenSizeCase{320.9, 568.99, 320, 568},
                                           ScreenSizeCase{1e10, 4294967295.5, UINT32_MAX, UINT32_MAX},
                                           ScreenSizeCase{std::numeric_limits<CGFloat>::quiet_NaN(), 0.4, 0,
                                                          0}));

// Notes when each capture reaches it, on the main thread, and holds up the first one.
class Stopwatch : public UIView {
public:
    static constexpr milliseconds kFirstCaptureDelay{300};

    void drawRect(CGRect) override {
        starts.push_back(std::chrono::steady_clock::now());
        if (starts.size() == 1) std::this_thread::sleep_for(kFirstCaptureDelay);
    }

    std::vector<std::chrono::steady_clock::time_point> starts;  // main thread only
};

TEST_F(RootViewScannerTest, StartedCoreCapturesOneIntervalAfterEachCaptureEndedUntilShutdown) {
    IngestServer server;
    auto configuration = configurationFor(server);
    configuration->setViewScanningEnabled(true);
    configuration->setNetworkCaptureEnabled(false);
    auto root = UIView::make();
    auto stopwatch = UIView::make<Stopwatch>(CGRectMake(0, 0, 10, 10));
    root->addSubview(stopwatch);
    auto window = windowShowing(root);
    auto core = Core::make(quillmere::Session::make("app-1"), configuration);
    ASSERT_TRUE(core);

    const auto started = std::chrono::steady_clock::now();
    core->start();
    ASSERT_TRUE(runMainLoopUntil([&] { return stopwatch->starts.size() >= 3; }, milliseconds(20000)));
    core->shutdown();
    EXPECT_TRUE(core->viewScanner()->timer()->isCancelled());
    // A capture that was waiting for the main thread finishes and still sends its event; let it,
    // so that nothing of this test runs during the next.
    const auto capturesMade = [&] {
        dispatch_sync(core->queue(), [] {});
        return capturesIn(server.events()).size() + capturesIn(core->uploader()->eventBuffer()).size();
    };
    EXPECT_TRUE(runMainLoopUntil([&] { return capturesMade() == stopwatch->starts.size(); }));
    const std::weak_ptr<quillmere::Uploader> uploader = core->uploader();
    EXPECT_TRUE(waitUntil([&] { return uploader.use_count() <= 1; }));  // no reply outstanding

    // Timers never fire early, so these hold however loaded the machine is.
    const auto& starts = stopwatch->starts;
    EXPECT_GE(starts[0] - started, milliseconds(900)) << "the first capture comes one interval after start";
    EXPECT_GE(starts[1] - starts[0], milliseconds(1000) + Stopwatch::kFirstCaptureDelay - milliseconds(50))
        << "the interval runs from the end of the slow capture";
    EXPECT_GE(starts[2] - starts[1], milliseconds(950));

    const auto sent = capturesIn(server.events());
    ASSERT_GE(sent.size(), 2u);
    for (const auto& capture : sent) {
        EXPECT_EQ(capture.width(), 390u);
        EXPECT_EQ(capture.height(), 844u);
        onePage(NSData::dataWithString(capture.pdfdata()));
    }
}

}  // namespace
