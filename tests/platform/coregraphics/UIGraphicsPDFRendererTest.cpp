// The PDF renderer records on the drawing thread and makes the document when its data is read.
#include <gtest/gtest.h>

#include <regex>
#include <thread>
#include <vector>

#include "platform/uikit/UIGraphics.h"
#include "platform/uikit/UIGraphicsPDFRenderer.h"
#include "tests/support/PdfReader.h"

using namespace platform;

namespace {

std::shared_ptr<NSData> drawPage(const CGImageRef& image) {
    UIGraphicsPDFRenderer renderer;
    return renderer.PDFDataWithActions([&](UIGraphicsPDFRendererContext& context) {
        CGContextSetFillColorWithColor(context.CGContext(), CGColorCreateGenericRGB(0, 1, 0, 1));
        CGContextFillRect(context.CGContext(), CGRectMake(0, 0, 612, 792));  // before any page: lost
        context.beginPage();
        auto c = UIGraphicsGetCurrentContext();
        EXPECT_EQ(c, context.CGContext());
        CGContextSetFillColorWithColor(c, CGColorCreateGenericRGB(1, 0, 0, 1));
        CGContextFillRect(c, CGRectMake(10, 20, 100, 50));  // y-down: 20 points from the top
        CGContextDrawImage(c, CGRectMake(200, 200, 40, 40), image);
        CGContextSetFillColorWithColor(c, CGColorCreateGenericGray(0, 1));
        CGContextSetTextMatrix(c, CGAffineTransformMakeScale(1, -1));
        CGContextSelectFont(c, "Helvetica", 14, kCGEncodingMacRoman);
        CGContextShowTextAtPoint(c, 10, 120, "Quarterly report", 16);
    });
}

CGImageRef smallImage() {
    auto c = CGBitmapContextCreate(nullptr, 8, 8, 8, 0, CGColorSpaceCreateDeviceRGB(),
                                   kCGImageAlphaPremultipliedFirst | kCGBitmapByteOrder32Little);
    CGContextSetFillColorWithColor(c, CGColorCreateGenericRGB(0, 0, 1, 1));
    CGContextFillRect(c, CGRectMake(0, 0, 8, 8));
    return CGBitmapContextCreateImage(c);
}

std::string withoutDates(std::string_view pdf) {
    static const std::regex date(R"(/CreationDate \([^)]*\))");
    return std::regex_replace(std::string(pdf), date, "");
}

}  // namespace

TEST(UIGraphicsPDFRenderer, MakesOneLetterPageWithVectorDrawingAndText) {
    auto data = drawPage(smallImage());
    auto pdf = qlm_test::PdfDocument::load(data->view());
    ASSERT_TRUE(pdf);
    EXPECT_EQ(pdf->pageCount(), 1);
    EXPECT_DOUBLE_EQ(pdf->pageWidth(), 612);
    EXPECT_DOUBLE_EQ(pdf->pageHeight(), 792);
    EXPECT_NE(pdf->text().find("Quarterly report"), std::string::npos);
    auto page = pdf->render();
    EXPECT_TRUE(page.near(50, 40, 255, 0, 0));
    EXPECT_TRUE(page.near(50, 10, 255, 255, 255));  // above the rectangle, and nothing green
    EXPECT_TRUE(page.near(220, 220, 0, 0, 255));
    EXPECT_EQ(UIGraphicsGetCurrentContext(), nullptr);

    UIGraphicsPDFRenderer renderer;
    auto blank = qlm_test::PdfDocument::load(renderer.PDFDataWithActions(nullptr)->view());
    ASSERT_TRUE(blank);
    EXPECT_EQ(blank->pageCount(), 1);
}

TEST(UIGraphicsPDFRenderer, BytesAreTheSameWhicheverThreadMakesThem) {
    auto image = smallImage();
    auto here = drawPage(image);
    auto there = drawPage(image);
    std::string madeHere(here->view());
    std::vector<std::string> madeThere(4);
    std::vector<std::thread> readers;
    for (auto& out : madeThere) readers.emplace_back([&out, there] { out = std::string(there->view()); });
    for (auto& t : readers) t.join();
    for (const auto& bytes : madeThere) EXPECT_EQ(bytes, madeThere.front());
    // The two documents were drawn at different moments; only their creation dates may differ.
    EXPECT_EQ(withoutDates(madeHere), withoutDates(madeThere.front()));
}

TEST(UIGraphicsPDFRenderer, DocumentsOfSharedImagesCanBeMadeConcurrently) {
    auto image = smallImage();
    std::vector<std::shared_ptr<NSData>> documents;
    for (int i = 0; i < 6; ++i) documents.push_back(drawPage(image));
    std::vector<std::thread> makers;
    for (auto& d : documents) makers.emplace_back([d] { EXPECT_GT(d->length(), 0u); });
    for (auto& t : makers) t.join();
    for (auto& d : documents) EXPECT_EQ(withoutDates(d->view()), withoutDates(documents.front()->view()));
}
