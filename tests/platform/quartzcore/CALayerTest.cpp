// Layer geometry, the layer tree, and renderInContext read back from bitmap contexts: what is drawn
// where, in which order, through which clips and masks.
#include <gtest/gtest.h>

#include <cmath>

#include "platform/quartzcore/CALayer.h"

using namespace platform;

namespace {

const CGColorRef kRed = CGColorCreateGenericRGB(1, 0, 0, 1);
const CGColorRef kGreen = CGColorCreateGenericRGB(0, 1, 0, 1);
const CGColorRef kBlue = CGColorCreateGenericRGB(0, 0, 1, 1);
const CGColorRef kWhite = CGColorCreateGenericGray(1, 1);
constexpr uint32_t kClear = 0, kRedPixel = 0xffff0000, kGreenPixel = 0xff00ff00, kBluePixel = 0xff0000ff,
                   kWhitePixel = 0xffffffff;

std::shared_ptr<CALayer> filled(CGRect frame, const CGColorRef& color) {
    auto layer = CALayer::layer();
    layer->setFrame(frame);
    layer->setBackgroundColor(color);
    return layer;
}

// A premultiplied ARGB bitmap. `flipped` gives it UIKit's y-down user space, so memory rows read
// like layer coordinates; unflipped it is the platform's y-up bitmap.
struct Canvas {
    Canvas(int width, int height, bool flipped = true)
        : context(CGBitmapContextCreate(nullptr, static_cast<std::size_t>(width),
                                        static_cast<std::size_t>(height), 8, 0, CGColorSpaceCreateDeviceRGB(),
                                        kCGImageAlphaPremultipliedFirst | kCGBitmapByteOrder32Little)) {
        if (flipped) {
            CGContextTranslateCTM(context, 0, height);
            CGContextScaleCTM(context, 1, -1);
        }
    }
    void render(CALayer& layer) {
        layer.renderInContext(context);
        EXPECT_EQ(context->gstateDepth(), 0u);  // left as it was found
    }
    uint32_t at(int x, int y) const {
        const auto* row = static_cast<const uint8_t*>(CGBitmapContextGetData(context)) +
                          static_cast<std::size_t>(y) * CGBitmapContextGetBytesPerRow(context);
        return reinterpret_cast<const uint32_t*>(row)[x];
    }
    ::testing::AssertionResult is(int x, int y, uint32_t argb, int tolerance = 8) const {
        const uint32_t p = at(x, y);
        for (int shift = 0; shift < 32; shift += 8) {
            if (std::abs(static_cast<int>((p >> shift) & 0xff) - static_cast<int>((argb >> shift) & 0xff)) >
                tolerance)
                return ::testing::AssertionFailure() << "(" << x << ", " << y << ") is " << std::hex << p;
        }
        return ::testing::AssertionSuccess();
    }
    CGContextRef context;
};

struct GeometryCase {
    const char* name;
    CGRect bounds;
    CGPoint position, anchor;
    CGAffineTransform transform;
    CGRect frame;
};

class LayerGeometryTest : public ::testing::TestWithParam<GeometryCase> {};

TEST_P(LayerGeometryTest, FrameIsTheBoxAroundTheTransformedBoundsAtThePosition) {
    const auto& c = GetParam();
    auto layer = CALayer::layer();
    layer->setBounds(c.bounds);
    layer->setPosition(c.position);
    layer->setAnchorPoint(c.anchor);
    layer->setAffineTransform(c.transform);
    const CGRect f = layer->frame();
    EXPECT_NEAR(f.origin.x, c.frame.origin.x, 1e-9);
    EXPECT_NEAR(f.origin.y, c.frame.origin.y, 1e-9);
    EXPECT_NEAR(f.size.width, c.frame.size.width, 1e-9);
    EXPECT_NEAR(f.size.height, c.frame.size.height, 1e-9);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LayerGeometryTest,
    ::testing::Values(
        GeometryCase{"centreAnchor", {{30, 40}, {100, 50}}, {50, 25}, {0.5, 0.5}, {}, {{0, 0}, {100, 50}}},
        GeometryCase{"bottomRightAnchor", {{0, 0}, {100, 50}}, {10, 20}, {1, 1}, {}, {{-90, -30}, {100, 50}}},
        GeometryCase{"scaleAboutCentre",
                     {{0, 0}, {100, 50}},
                     {50, 25},
                     {0.5, 0.5},
                     CGAffineTransformMakeScale(2, 2),
                     {{-50, -25}, {200, 100}}},
        GeometryCase{"quarterTurn",
                     {{0, 0}, {100, 50}},
                     {50, 25},
                     {0.5, 0.5},
                     CGAffineTransformMakeRotation(M_PI / 2),
                     {{25, -25}, {50, 100}}},
        GeometryCase{"negativeSize", {{0, 0}, {-100, -50}}, {50, 25}, {0.5, 0.5}, {}, {{0, 0}, {100, 50}}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(LayerGeometry, SettingFrameMovesPositionAndSizesBoundsKeepingTheirOrigin) {
    auto layer = CALayer::layer();
    layer->setBounds(CGRectMake(5, 6, 1, 1));
    layer->setAnchorPoint(CGPointMake(0.25, 0.5));
    layer->setFrame(CGRectMake(10, 20, 30, 40));
    EXPECT_TRUE(CGPointEqualToPoint(layer->position(), CGPointMake(17.5, 40)));
    EXPECT_TRUE(CGRectEqualToRect(layer->bounds(), CGRectMake(5, 6, 30, 40)));
}

TEST(LayerTree, LayersMoveBetweenSuperlayersKeepOrderAndRefuseCycles) {
    auto a = CALayer::layer(), b = CALayer::layer();
    auto x = CALayer::layer(), y = CALayer::layer(), z = CALayer::layer();
    a->addSublayer(x);
    a->addSublayer(y);
    a->insertSublayer(z, 0);
    EXPECT_EQ(a->sublayers(), (std::vector{z, x, y}));
    a->addSublayer(z);  // already there: to the end
    a->insertSublayer(x, 99);
    EXPECT_EQ(a->sublayers(), (std::vector{y, z, x}));
    b->addSublayer(y);
    EXPECT_EQ(a->sublayers(), (std::vector{z, x}));
    EXPECT_EQ(y->superlayer(), b);
    x->addSublayer(a);  // an ancestor
    x->addSublayer(x);
    EXPECT_EQ(a->superlayer(), nullptr);
    EXPECT_TRUE(x->sublayers().empty());

    std::weak_ptr<CALayer> weak = z;
    z.reset();  // the tree holds the only reference
    weak.lock()->removeFromSuperlayer();
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(a->sublayers(), (std::vector{x}));
}

TEST(LayerRendering, BackgroundHonoursCornerRadiusAndBorderIsInside) {
    auto layer = filled(CGRectMake(0, 0, 40, 40), kWhite);
    layer->setCornerRadius(10);
    layer->setBorderColor(kBlue);
    layer->setBorderWidth(4);
    Canvas canvas(40, 40);
    canvas.render(*layer);
    EXPECT_TRUE(canvas.is(1, 1, kClear));
    EXPECT_TRUE(canvas.is(38, 38, kClear));
    EXPECT_TRUE(canvas.is(20, 1, kBluePixel));
    EXPECT_TRUE(canvas.is(1, 20, kBluePixel));
    EXPECT_TRUE(canvas.is(20, 6, kWhitePixel));
}

TEST(LayerRendering, MasksToBoundsClipsSublayersToTheRoundedBounds) {
    for (const bool masks : {false, true}) {
        SCOPED_TRACE(masks);
        auto root = filled(CGRectMake(0, 0, 40, 40), nullptr);
        auto parent = filled(CGRectMake(0, 0, 20, 20), nullptr);
        parent->setCornerRadius(8);
        parent->setMasksToBounds(masks);
        parent->addSublayer(filled(CGRectMake(0, 0, 30, 30), kGreen));
        root->addSublayer(parent);
        Canvas canvas(40, 40);
        canvas.render(*root);
        EXPECT_TRUE(canvas.is(10, 10, kGreenPixel));
        EXPECT_TRUE(canvas.is(25, 25, masks ? kClear : kGreenPixel));
        EXPECT_TRUE(canvas.is(0, 0, masks ? kClear : kGreenPixel));
    }
}

TEST(LayerRendering, MaskLayerLetsThroughOnlyWhereItIsOpaqueWhicheverWayUp) {
    for (const bool flipped : {true, false}) {
        SCOPED_TRACE(flipped);
        auto root = filled(CGRectMake(0, 0, 40, 40), nullptr);
        auto layer = filled(CGRectMake(0, 0, 40, 40), kRed);
        auto mask = filled(CGRectMake(0, 0, 40, 40), nullptr);
        mask->addSublayer(filled(CGRectMake(0, 0, 40, 20), kBlue));  // opaque over the top half
        layer->setMask(mask);
        auto emptyMasked = filled(CGRectMake(0, 0, 40, 40), kGreen);
        emptyMasked->setMask(CALayer::layer());  // shows nothing
        root->addSublayer(layer);
        root->addSublayer(emptyMasked);
        Canvas canvas(40, 40, flipped);
        canvas.render(*root);
        // Unflipped, the whole layer comes out upside down, as on the platform.
        EXPECT_TRUE(canvas.is(20, flipped ? 10 : 30, kRedPixel));
        EXPECT_TRUE(canvas.is(20, flipped ? 30 : 10, kClear));
    }
}


}  // namespace
