// The view hierarchy and its layer tree in step, windows and the application, controllers, and
// view properties that become layer properties.
#include <gtest/gtest.h>

#include "platform/uikit/UIApplication.h"
#include "platform/uikit/UIGraphics.h"
#include "platform/uikit/UIImageView.h"
#include "platform/uikit/UIScrollView.h"
#include "platform/uikit/UIWindow.h"

using namespace platform;

namespace {

TEST(ViewTree, SubviewsFollowTheLayerOrderThroughInsertsAndMoves) {
    auto root = UIView::make(), other = UIView::make();
    auto a = UIView::make(), b = UIView::make(), c = UIView::make(), d = UIView::make();
    for (const auto& v : {a, b, c}) root->addSubview(v);
    root->insertSubview(d, 1);
    EXPECT_EQ(root->subviews(), (std::vector{a, d, b, c}));
    root->addSubview(a);  // already there: to the front
    // A layer added directly sits among the views' layers; inserting by view index skips it.
    root->layer()->insertSublayer(CALayer::layer(), 1);
    root->insertSubview(a, 1);
    EXPECT_EQ(root->subviews(), (std::vector{d, a, b, c}));
    EXPECT_EQ(root->layer()->sublayers()[2], a->layer());

    other->addSubview(b);
    EXPECT_EQ(root->subviews(), (std::vector{d, a, c}));
    EXPECT_EQ(b->superview(), other);
    EXPECT_EQ(b->layer()->superlayer(), other->layer());
    b->addSubview(other);  // an ancestor: refused
    EXPECT_EQ(other->superview(), nullptr);

    std::weak_ptr<UIView> weak = d;
    d.reset();  // the tree holds the only reference
    weak.lock()->removeFromSuperview();
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(root->layer()->sublayers().size(), 3u);
}

TEST(ViewTree, RecognizersMoveBetweenViewsAndDrawingHappensInTheViewsContext) {
    auto first = UIView::make(), second = UIView::make();
    auto recognizer = std::make_shared<UIGestureRecognizer>();
    first->addGestureRecognizer(recognizer);
    second->addGestureRecognizer(recognizer);
    EXPECT_TRUE(first->gestureRecognizers().empty());
    EXPECT_EQ(recognizer->view(), second);
    second->removeGestureRecognizer(recognizer);
    EXPECT_EQ(recognizer->view(), nullptr);

    struct Recording : UIView {
        void drawRect(CGRect rect) override { drawn = {rect, UIGraphicsGetCurrentContext()}; }
        std::pair<CGRect, CGContextRef> drawn;
    };
    auto view = UIView::make<Recording>(CGRectMake(5, 5, 30, 20));
    EXPECT_EQ(view->layer()->delegate(), view);
    auto context = CGBitmapContextCreate(nullptr, 40, 40, 8, 0, nullptr, kCGImageAlphaOnly);
    view->layer()->renderInContext(context);
    EXPECT_TRUE(CGRectEqualToRect(view->drawn.first, CGRectMake(0, 0, 30, 20)));
    EXPECT_EQ(view->drawn.second, context);
    EXPECT_EQ(UIGraphicsGetCurrentContext(), nullptr);

    auto scroll = UIView::make<UIScrollView>(CGRectMake(0, 0, 100, 100));
    scroll->setContentOffset(CGPointMake(0, 250));
    EXPECT_TRUE(CGRectEqualToRect(scroll->layer()->bounds(), CGRectMake(0, 250, 100, 100)));
    EXPECT_TRUE(CGRectEqualToRect(scroll->frame(), CGRectMake(0, 0, 100, 100)));
}

TEST(Windows, AWindowIsListedWhileAliveAndIsTheWindowOfItsViews) {
    auto app = UIApplication::sharedApplication();
    const auto before = app->windows().size();
    std::weak_ptr<UIWindow> weak;
    {
        auto window = UIView::make<UIWindow>(CGRectMake(0, 0, 320, 480));
        weak = window;
        EXPECT_TRUE(window->isHidden());
        EXPECT_EQ(app->windows().size(), before + 1);
        EXPECT_EQ(app->windows().back(), window);
        auto middle = UIView::make(), inner = UIView::make();
        window->addSubview(middle);
        middle->addSubview(inner);
        EXPECT_EQ(inner->window(), window);
        middle->removeFromSuperview();
        EXPECT_EQ(inner->window(), nullptr);
        window->makeKeyAndVisible();
        EXPECT_FALSE(window->isHidden());
        EXPECT_TRUE(window->isKeyWindow());
    }
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(app->windows().size(), before);
    EXPECT_EQ(app->keyWindow(), nullptr);
}

class CountingController : public UIViewController {
public:
    int loads = 0;
    bool leaveEmpty = false;

protected:
    void loadView() override {
        ++loads;
        EXPECT_EQ(view(), nullptr);  // asking while loading does not load again
        if (!leaveEmpty) setView(UIView::make());
    }
};

TEST(Windows, RootViewControllersViewFillsTheWindowAndIsReplaced) {
    auto window = UIView::make<UIWindow>(CGRectMake(0, 0, 200, 300));
    auto first = std::make_shared<CountingController>();
    window->setRootViewController(first);
    EXPECT_EQ(window->subviews(), (std::vector{first->view()}));
    EXPECT_TRUE(CGRectEqualToRect(first->view()->frame(), CGRectMake(0, 0, 200, 300)));
    EXPECT_EQ(first->loads, 1);

    auto second = std::make_shared<UIViewController>();
    window->setRootViewController(second);
    EXPECT_EQ(first->view()->superview(), nullptr);
    EXPECT_EQ(window->subviews(), (std::vector{second->view()}));

    auto empty = std::make_shared<CountingController>();
    empty->leaveEmpty = true;
    window->setRootViewController(empty);
    EXPECT_TRUE(window->subviews().empty());
    EXPECT_EQ(empty->view(), nullptr);
    EXPECT_EQ(empty->loads, 2);  // a view that didn't load is tried again
}

struct ImageViewCase {
    const char* name;
    bool resizable;
    UIImageResizingMode mode;
    UIViewContentMode contentMode;
    CGRect center;
    std::string_view gravity;
};

class ImageViewTest : public ::testing::TestWithParam<ImageViewCase> {};

TEST_P(ImageViewTest, ImageBecomesLayerContentsWithScaleStretchableCentreAndGravity) {
    const auto& c = GetParam();
    auto bitmap = CGBitmapContextCreate(nullptr, 40, 20, 8, 0, nullptr, kCGImageAlphaOnly);
    auto image = UIImage::imageWithCGImage(CGBitmapContextCreateImage(bitmap), 2);  // 20 by 10 points
    if (c.resizable) image = image->resizableImageWithCapInsets(UIEdgeInsetsMake(2, 5, 3, 10), c.mode);
    auto view = UIView::make<UIImageView>(CGRectMake(0, 0, 50, 50));
    view->layer()->setContentsCenter(CGRectMake(0.1, 0.1, 0.1, 0.1));  // replaced
    view->setImage(image);
    view->setContentMode(c.contentMode);
    EXPECT_EQ(view->layer()->contents(), image->CGImage());
    EXPECT_EQ(view->layer()->contentsScale(), 2);
    EXPECT_TRUE(CGRectEqualToRect(view->layer()->contentsCenter(), c.center));
    EXPECT_EQ(view->layer()->contentsGravity(), c.gravity);
}

INSTANTIATE_TEST_SUITE_P(Cases, ImageViewTest,
                         ::testing::Values(ImageViewCase{"plain",
                                                         false,
                                                         UIImageResizingMode::UIImageResizingModeStretch,
                                                         UIViewContentMode::UIViewContentModeScaleAspectFit,
                                                         {{0, 0}, {1, 1}},
                                                         kCAGravityResizeAspect},
                                           ImageViewCase{"stretchCaps",
                                                         true,
                                                         UIImageResizingMode::UIImageResizingModeStretch,
                                                         UIViewContentMode::UIViewContentModeScaleToFill,
                                                         {{0.25, 0.2}, {0.25, 0.5}},
                                                         kCAGravityResize},
                                           ImageViewCase{"tileCaps",
                                                         true,
                                                         UIImageResizingMode::UIImageResizingModeTile,
                                                         UIViewContentMode::UIViewContentModeScaleAspectFill,
                                                         {{0, 0}, {1, 1}},
                                                         kCAGravityResizeAspectFill},
                                           ImageViewCase{"centre",
                                                         false,
                                                         UIImageResizingMode::UIImageResizingModeTile,
                                                         UIViewContentMode::UIViewContentModeCenter,
                                                         {{0, 0}, {1, 1}},
                                                         kCAGravityCenter}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
