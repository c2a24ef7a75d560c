// UIKit drawing into PDF pages, read back through poppler: resizable images, text of labels and
// text fields as extractable text in the right place, paths, and drawing that must not break the
// page for what follows.
#include <gtest/gtest.h>

#include <functional>

#include "platform/uikit/UIGraphics.h"
#include "platform/uikit/UIGraphicsPDFRenderer.h"
#include "platform/uikit/UIImage.h"
#include "platform/uikit/UILabel.h"
#include "platform/uikit/UITextField.h"
#include "tests/support/PdfReader.h"

using namespace platform;
using qlm_test::PdfDocument;
using qlm_test::RasterPage;

namespace {

PdfDocument drawPage(CGFloat width, CGFloat height, const std::function<void(const CGContextRef&)>& draw) {
    auto renderer = std::make_shared<UIGraphicsPDFRenderer>(CGRectMake(0, 0, width, height));
    auto data = renderer->PDFDataWithActions([&](UIGraphicsPDFRendererContext& context) {
        context.beginPage();
        draw(context.CGContext());
    });
    auto document = PdfDocument::load(data->view());
    EXPECT_TRUE(document.has_value());
    return document ? std::move(*document) : PdfDocument{};
}

PdfDocument drawView(const std::shared_ptr<UIView>& view) {
    const CGRect frame = view->frame();
    return drawPage(frame.size.width, frame.size.height,
                    [&](const CGContextRef& context) { view->layer()->renderInContext(context); });
}

struct Ink {
    int minX = 1 << 30, minY = 1 << 30, maxX = -1, maxY = -1;
    int darkest = 255 * 3;
    bool any() const { return maxX >= 0; }
};

// Where the page isn't white.
Ink inkOf(const RasterPage& page) {
    Ink ink;
    for (int y = 0; y < page.height; ++y) {
        for (int x = 0; x < page.width; ++x) {
            const uint32_t p = page.at(x, y);
            const int sum = static_cast<int>(((p >> 16) & 0xff) + ((p >> 8) & 0xff) + (p & 0xff));
            if (sum > 3 * 245) continue;
            ink.minX = std::min(ink.minX, x), ink.maxX = std::max(ink.maxX, x);
            ink.minY = std::min(ink.minY, y), ink.maxY = std::max(ink.maxY, y);
            ink.darkest = std::min(ink.darkest, sum);
        }
    }
    return ink;
}

CGContextRef rgbBitmap(int width, int height) {
    return CGBitmapContextCreate(nullptr, static_cast<std::size_t>(width), static_cast<std::size_t>(height),
                                 8, 0, CGColorSpaceCreateDeviceRGB(),
                                 kCGImageAlphaPremultipliedFirst | kCGBitmapByteOrder32Little);
}

void fill(const CGContextRef& c, CGRect rect, CGFloat r, CGFloat g, CGFloat b) {
    CGContextSetRGBFillColor(c, r, g, b, 1);
    CGContextFillRect(c, rect);
}

// 30 by 30 points at `scale`: 10-point red corners, green edges, and a middle whose left half is
// blue and right half yellow, so stretching and tiling tell apart.
std::shared_ptr<UIImage> ninePartImage(CGFloat scale) {
    const int side = static_cast<int>(30 * scale);
    auto bitmap = rgbBitmap(side, side);
    CGContextScaleCTM(bitmap, scale, scale);
    fill(bitmap, CGRectMake(0, 0, 30, 30), 0, 1, 0);
    for (const CGFloat x : {0, 20})
        for (const CGFloat y : {0, 20}) fill(bitmap, CGRectMake(x, y, 10, 10), 1, 0, 0);
    fill(bitmap, CGRectMake(10, 10, 5, 10), 0, 0, 1);
    fill(bitmap, CGRectMake(15, 10, 5, 10), 1, 1, 0);
    return UIImage::imageWithCGImage(CGBitmapContextCreateImage(bitmap), scale);
}

// 4 by 4 pixels: red top half, blue bottom half.
CGImageRef topRedImage() {
    auto bitmap = rgbBitmap(4, 4);
    fill(bitmap, CGRectMake(0, 0, 4, 2), 0, 0, 1);
    fill(bitmap, CGRectMake(0, 2, 4, 2), 1, 0, 0);  // a bitmap's top rows are its largest y
    return CGBitmapContextCreateImage(bitmap);
}

struct NinePartCase {
    const char* name;
    CGFloat scale;
    UIImageResizingMode mode;
};

class ResizableImageTest : public ::testing::TestWithParam<NinePartCase> {};

TEST_P(ResizableImageTest, CornersKeepTheirSizeWhileEdgesAndMiddleFill) {
    const auto& c = GetParam();
    const bool tile = c.mode == UIImageResizingMode::UIImageResizingModeTile;
    const auto image =
        ninePartImage(c.scale)->resizableImageWithCapInsets(UIEdgeInsetsMake(10, 10, 10, 10), c.mode);
    EXPECT_TRUE(CGSizeEqualToSize(image->size(), CGSizeMake(30, 30)));
    const auto page = drawPage(200, 100, [&](const CGContextRef&) {
                          image->drawInRect(CGRectMake(0, 0, 200, 100));
                      }).render();
    for (const auto& [x, y] : {std::pair{5, 5}, {194, 5}, {5, 94}, {194, 94}}) {
        EXPECT_TRUE(page.near(x, y, 255, 0, 0)) << "corner at " << x << ", " << y;
    }
    EXPECT_TRUE(page.near(100, 5, 0, 255, 0));
    EXPECT_TRUE(page.near(5, 50, 0, 255, 0));
    EXPECT_TRUE(page.near(194, 50, 0, 255, 0));
    // A stretched middle is blue then yellow across; a tiled one alternates every 5 points.
    EXPECT_TRUE(page.near(12, 50, 0, 0, 255));
    EXPECT_TRUE(tile ? page.near(17, 15, 255, 255, 0) : page.near(17, 15, 0, 0, 255));
    EXPECT_TRUE(tile ? page.near(37, 50, 255, 255, 0) : page.near(37, 50, 0, 0, 255));
    EXPECT_TRUE(tile ? page.near(152, 50, 0, 0, 255) : page.near(152, 50, 255, 255, 0));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ResizableImageTest,
    ::testing::Values(NinePartCase{"stretch1x", 1, UIImageResizingMode::UIImageResizingModeStretch},
                      NinePartCase{"stretch2x", 2, UIImageResizingMode::UIImageResizingModeStretch},
                      NinePartCase{"tile1x", 1, UIImageResizingMode::UIImageResizingModeTile},
                      NinePartCase{"tile3x", 3, UIImageResizingMode::UIImageResizingModeTile}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ImageDrawing, CapsShrinkTogetherInASmallRectAndPlainImagesAreUpright) {
    const auto image = ninePartImage(2)->resizableImageWithCapInsets(
        UIEdgeInsetsMake(10, 10, 10, 10), UIImageResizingMode::UIImageResizingModeStretch);
    // Two 10-point caps in 12 points: 6 points each, nothing of the middle or the edges.
    const auto small = drawPage(40, 40, [&](const CGContextRef&) {
                           image->drawInRect(CGRectMake(0, 0, 12, 12));
                       }).render(0, 288);  // 4 pixels a point
    for (const auto& [x, y] : {std::pair{2, 2}, {10, 2}, {2, 10}, {10, 10}, {5, 5}}) {
        EXPECT_TRUE(small.near(x * 4, y * 4, 255, 0, 0)) << x << ", " << y;
    }
    EXPECT_TRUE(small.near(13 * 4, 6 * 4, 255, 255, 255));

    const auto plain = UIImage::imageWithCGImage(topRedImage());
    const auto page =
        drawPage(40, 40, [&](const CGContextRef&) { plain->drawInRect(CGRectMake(0, 0, 40, 40)); }).render();
    EXPECT_TRUE(page.near(20, 5, 255, 0, 0));
    EXPECT_TRUE(page.near(20, 35, 0, 0, 255));
}

TEST(Text, LabelsDrawExtractableTextCentredVerticallyAndAligned) {
    const std::pair<NSTextAlignment, const char*> alignments[] = {
        {NSTextAlignment::NSTextAlignmentLeft, "left"},
        {NSTextAlignment::NSTextAlignmentCenter, "centre"},
        {NSTextAlignment::NSTextAlignmentRight, "right"}};
    for (const auto& [alignment, name] : alignments) {
        SCOPED_TRACE(name);
        auto label = UIView::make<UILabel>(CGRectMake(0, 0, 300, 60));
        label->setText("Quill label");
        label->setFont(UIFont::boldSystemFontOfSize(20));
        label->setTextColor(UIColor::blueColor());
        label->setTextAlignment(alignment);
        const auto document = drawView(label);
        EXPECT_NE(document.text().find("Quill label"), std::string::npos) << document.text();
        const auto page = document.render();
        const Ink ink = inkOf(page);
        ASSERT_TRUE(ink.any());
        EXPECT_NEAR((ink.minY + ink.maxY) / 2.0, 30, 4);
        const double expected[] = {static_cast<double>(ink.minX), (ink.minX + ink.maxX) / 2.0,
                                   static_cast<double>(ink.maxX)};
        const double want[] = {0, 150, 299};
        const auto i = static_cast<std::size_t>(alignment);
        EXPECT_NEAR(expected[i], want[i], 3);
        EXPECT_GT(ink.darkest, 200);  // blue, not the default black
    }
}

TEST(Text, MeasuredSizeFollowsLinesAndWeight) {
    const NSStringDrawingAttributes regular{UIFont::systemFontOfSize(20), nullptr, {}};
    const CGSize one = NSStringSizeWithAttributes("abcd", regular);
    const CGSize two = NSStringSizeWithAttributes("ab\nabcd", regular);
    EXPECT_DOUBLE_EQ(two.width, one.width);
    EXPECT_DOUBLE_EQ(two.height, 2 * regular.font->lineHeight());
    EXPECT_GT(regular.font->lineHeight(), regular.font->ascender());
    EXPECT_GT(NSStringSizeWithAttributes("abcd", {UIFont::boldSystemFontOfSize(20), nullptr, {}}).width,
              one.width);
}

TEST(Text, SecureFieldsDrawOneBulletPerCharacterAndEmptyOnesTheirPlaceholder) {
    auto field = UIView::make<UITextField>(CGRectMake(0, 0, 300, 44));
    field->setText("h\xC3\xA9llo2");  // six characters, seven bytes
    field->setSecureTextEntry(true);
    std::string text = drawView(field).text();
    EXPECT_EQ(text.find("llo2"), std::string::npos);
    EXPECT_NE(text.find("\u2022\u2022\u2022\u2022\u2022\u2022"), std::string::npos) << text;
    EXPECT_EQ(text.find("\u2022\u2022\u2022\u2022\u2022\u2022\u2022"), std::string::npos) << text;

    field->setSecureTextEntry(false);
    const auto plain = drawView(field);
    EXPECT_NE(plain.text().find("h\xC3\xA9llo2"), std::string::npos);
    const Ink ink = inkOf(plain.render());
    EXPECT_GE(ink.minX, 8);
    EXPECT_NEAR((ink.minY + ink.maxY) / 2.0, 22, 4);

    field->setText(std::nullopt);
    field->setPlaceholder("Email address");
    const auto placeholder = drawView(field);
    EXPECT_NE(placeholder.text().find("Email address"), std::string::npos);
    const Ink faint = inkOf(placeholder.render());
    ASSERT_TRUE(faint.any());
    EXPECT_GT(faint.darkest, 3 * 150);  // grey, not the black of the text
}

TEST(Drawing, BadTextAndCollapsedViewsLeaveThePageDrawable) {
    auto root = UIView::make(CGRectMake(0, 0, 200, 100));
    auto label = UIView::make<UILabel>(CGRectMake(0, 0, 200, 50));
    label->setText(std::string("\xFF\xFE ok \xE2\x82", 8) + std::string(1, '\0') + "tail");
    auto collapsed = UIView::make(CGRectMake(0, 50, 100, 50));
    collapsed->setTransform(CGAffineTransformMakeScale(0, 0));
    auto hiddenText = UIView::make<UILabel>(CGRectMake(0, 0, 100, 50));
    hiddenText->setText("invisible");
    collapsed->addSubview(hiddenText);
    auto after = UIView::make(CGRectMake(100, 50, 100, 50));
    after->setBackgroundColor(UIColor::redColor());
    for (const auto& v : {std::shared_ptr<UIView>(label), collapsed, after}) root->addSubview(v);

    const auto document = drawView(root);
    EXPECT_NE(document.text().find("ok"), std::string::npos);
    EXPECT_EQ(document.text().find("invisible"), std::string::npos);
    EXPECT_TRUE(document.render().near(150, 75, 255, 0, 0));
}

TEST(Drawing, LayerOpacityMasksAndContentsComeOutOnThePage) {
    auto root = UIView::make(CGRectMake(0, 0, 120, 40));
    auto faded = UIView::make(CGRectMake(0, 0, 40, 40));
    faded->setBackgroundColor(UIColor::redColor());
    faded->setAlpha(0.5);
    auto cover = UIView::make(CGRectMake(0, 0, 20, 40));
    cover->setBackgroundColor(UIColor::colorWithRed(0, 1, 0, 1));
    faded->addSubview(cover);

    auto masked = UIView::make(CGRectMake(40, 0, 40, 40));
    masked->setBackgroundColor(UIColor::blueColor());
    auto mask = CALayer::layer();
    mask->setFrame(CGRectMake(0, 0, 40, 40));
    auto opaqueTop = CALayer::layer();
    opaqueTop->setFrame(CGRectMake(0, 0, 40, 20));
    opaqueTop->setBackgroundColor(UIColor::blackColor()->CGColor());
    mask->addSublayer(opaqueTop);
    masked->layer()->setMask(mask);

    auto pictured = UIView::make(CGRectMake(80, 0, 40, 40));
    pictured->layer()->setContents(topRedImage());
    for (const auto& v : {faded, masked, pictured}) root->addSubview(v);

    const auto page = drawView(root).render();
    EXPECT_TRUE(page.near(10, 20, 128, 255, 128));  // half green over white, no red through it
    EXPECT_TRUE(page.near(30, 20, 255, 128, 128));
    EXPECT_TRUE(page.near(60, 10, 0, 0, 255));
    EXPECT_TRUE(page.near(60, 30, 255, 255, 255));
    EXPECT_TRUE(page.near(100, 5, 255, 0, 0));
    EXPECT_TRUE(page.near(100, 35, 0, 0, 255));
}

}  // namespace
