// What the walk paints, read back as pixels from the PDF (72 dpi: one pixel per point).
#include <gtest/gtest.h>

#include "platform/quartzcore/CALayer.h"
#include "platform/uikit/UIScrollView.h"
#include "tests/capture/screen/ScreenTestSupport.h"

using namespace platform;
using namespace qlm_test;

namespace {

TEST(LayerRendering, BackgroundRoundedCornersAndInsetBorderFollowTheLayer) {
    auto root = coloredView(CGRectMake(0, 0, 300, 300), kRed);
    auto card = coloredView(CGRectMake(20, 20, 100, 60), kBlue);
    card->layer()->setBorderColor(cgColor(kGreen));
    card->layer()->setBorderWidth(4);
    card->layer()->setCornerRadius(20);
    root->addSubview(card);

    const auto page = render({root}).render();
    EXPECT_PIXEL(page, 70, 50, kBlue);
    // The stroke lies inside the bounds, x 20 to 24, not centred on the edge.
    EXPECT_PIXEL(page, 23, 50, kGreen);
    EXPECT_PIXEL(page, 26, 50, kBlue);
    // Outside the card, and in its cut-off corner, the parent shows.
    EXPECT_PIXEL(page, 70, 17, kRed);
    EXPECT_PIXEL(page, 21, 21, kRed);
    EXPECT_PIXEL(page, 200, 200, kRed);
}

// Content is always cut to bounds; masksToBounds decides only whether rounded corners cut it too.
class MasksToBounds : public ::testing::TestWithParam<bool> {};

TEST_P(MasksToBounds, DecidesWhetherRoundedCornersCutTheSublayers) {
    const bool masks = GetParam();
    auto card = coloredView(CGRectMake(50, 50, 100, 100), kBlue);
    card->layer()->setCornerRadius(30);
    card->layer()->setMasksToBounds(masks);
    card->addSubview(coloredView(CGRectMake(0, 0, 100, 100), kGreen));
    card->addSubview(coloredView(CGRectMake(80, 80, 60, 60), kRed));  // sticks out of the card

    const auto page = render({card}).render();
    EXPECT_PIXEL(page, 100, 100, kGreen);
    EXPECT_PIXEL(page, 52, 52, masks ? kWhite : kGreen);
    EXPECT_PIXEL(page, 135, 135, kRed);
    EXPECT_PIXEL(page, 160, 160, kWhite);
}

INSTANTIATE_TEST_SUITE_P(LayerRendering, MasksToBounds, ::testing::Bool());

// A 2 by 2 image: red, green over blue, black.
CGImageRef quadrants() {
    return makeImage(2, 2,
                     {{CGRectMake(0, 0, 1, 1), kRed},
                      {CGRectMake(1, 0, 1, 1), kGreen},
                      {CGRectMake(0, 1, 1, 1), kBlue},
                      {CGRectMake(1, 1, 1, 1), kBlack}});
}

class ContentsGravity : public ::testing::TestWithParam<std::string_view> {};

TEST_P(ContentsGravity, ImageIsStretchedUprightOverTheWholeFrame) {
    auto view = UIView::make(CGRectMake(100, 100, 200, 100));
    view->layer()->setContents(quadrants());
    view->layer()->setContentsGravity(std::string(GetParam()));

    const auto page = render({view}).render();
    EXPECT_PIXEL(page, 103, 103, kRed);
    EXPECT_PIXEL(page, 297, 103, kGreen);
    EXPECT_PIXEL(page, 103, 197, kBlue);
    EXPECT_PIXEL(page, 297, 197, kBlack);
    EXPECT_PIXEL(page, 200, 97, kWhite);
}

INSTANTIATE_TEST_SUITE_P(LayerRendering, ContentsGravity,
                         ::testing::Values(kCAGravityResize, kCAGravityCenter, kCAGravityResizeAspect));

struct NinePartCase {
    std::string_view gravity;
    CGFloat contentsScale;
    int capPoints;  // how wide the left edge of the image comes out on the page
};

void PrintTo(const NinePartCase& c, std::ostream* os) {
    *os << c.gravity << " at scale " << c.contentsScale;
}

class NinePartContents : public ::testing::TestWithParam<NinePartCase> {};

// A 40 by 40 red image with a green middle of 20 by 20, centre (0.25, 0.25, 0.5, 0.5), in a frame
// of 200 by 100: as nine parts only the middle stretches, and caps keep their size in points.
TEST_P(NinePartContents, CapsKeepTheirSizeOnlyWhenTheLayerResizes) {
    const auto& c = GetParam();
    auto view = UIView::make(CGRectMake(100, 100, 200, 100));
    view->layer()->setContents(
        makeImage(40, 40, {{CGRectMake(0, 0, 40, 40), kRed}, {CGRectMake(10, 10, 20, 20), kGreen}}));
    view->layer()->setContentsGravity(std::string(c.gravity));
    view->layer()->setContentsCenter(CGRectMake(0.25, 0.25, 0.5, 0.5));
    view->layer()->setContentsScale(c.contentsScale);

    const auto page = render({view}).render();
    // Clear of the seam, which a stretched image blurs over a few points.
    EXPECT_PIXEL(page, 100 + c.capPoints / 2, 150, kRed);
    EXPECT_PIXEL(page, 100 + c.capPoints + 6, 150, kGreen);
}

INSTANTIATE_TEST_SUITE_P(LayerRendering, NinePartContents,
                         ::testing::Values(NinePartCase{kCAGravityResize, 1, 10},
                                           NinePartCase{kCAGravityResize, 2, 5},
                                           // No nine parts: the whole image stretches, 10 pixels become 50.
                                           NinePartCase{kCAGravityCenter, 1, 50}));

TEST(LayerRendering, ScrollOffsetMovesTheContentUnderAClipThatStaysOnTheFrame) {
    auto scroll = UIView::make<UIScrollView>(CGRectMake(0, 100, 200, 100));
    scroll->addSubview(coloredView(CGRectMake(0, 0, 200, 50), kRed));
    scroll->addSubview(coloredView(CGRectMake(0, 100, 200, 50), kGreen));
    scroll->setContentSize(CGSizeMake(200, 300));
    scroll->setContentOffset(CGPointMake(0, 100));

    const auto page = render({scroll}).render();
    EXPECT_PIXEL(page, 100, 125, kGreen);
    EXPECT_PIXEL(page, 100, 175, kWhite);
    // Scrolled above the frame: cut off, not drawn over what lies above.
    EXPECT_PIXEL(page, 100, 25, kWhite);
    EXPECT_PIXEL(page, 100, 75, kWhite);
}

TEST(LayerRendering, MaskDecidesWhatShowsTopSideUp) {
    auto view = coloredView(CGRectMake(50, 50, 100, 100), kRed);
    auto mask = CALayer::layer();
    mask->setFrame(CGRectMake(0, 0, 100, 50));
    mask->setBackgroundColor(cgColor(kBlack));
    view->layer()->setMask(mask);

    const auto page = render({view}).render();
    EXPECT_PIXEL(page, 100, 70, kRed);
    EXPECT_PIXEL(page, 100, 130, kWhite);
}

TEST(LayerRendering, SublayersDrawByZPositionAndInTheirOrderWhenEqual) {
    // In sublayer order: z 1 (left half), 0, 0, -1. Drawn: -1, the first 0, the second 0, 1.
    auto host = UIView::make(CGRectMake(0, 0, 200, 100));
    const struct {
        Rgb color;
        CGFloat z, width;
    } layers[] = {{kRed, 1, 100}, {kGreen, 0, 200}, {kBlue, 0, 200}, {kBlack, -1, 200}};
    for (const auto& [color, z, width] : layers) {
        auto view = coloredView(CGRectMake(0, 0, width, 100), color);
        view->layer()->setZPosition(z);
        host->addSubview(view);
    }

    const auto page = render({host}).render();
    EXPECT_PIXEL(page, 50, 50, kRed);
    EXPECT_PIXEL(page, 150, 50, kBlue);
}

TEST(LayerRendering, LayersWithNoViewBehindThemAreLeftOutWithWhatLiesBelow) {
    auto host = UIView::make(CGRectMake(0, 0, 200, 100));
    auto plain = CALayer::layer();
    plain->setFrame(CGRectMake(0, 0, 100, 100));
    plain->setBackgroundColor(cgColor(kRed));
    host->layer()->addSublayer(plain);
    host->addSubview(coloredView(CGRectMake(100, 0, 100, 100), kGreen));

    const auto page = render({host}).render();
    EXPECT_PIXEL(page, 50, 50, kWhite);
    EXPECT_PIXEL(page, 150, 50, kGreen);
}

}  // namespace
