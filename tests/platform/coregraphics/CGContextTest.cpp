// Bitmap contexts, image and mask placement, and recording: what a recording context replays must
// be exactly what the same calls draw directly.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "platform/coregraphics/CGContext.h"

using namespace platform;

namespace {

constexpr uint32_t kPremultipliedBGRA = kCGImageAlphaPremultipliedFirst | kCGBitmapByteOrder32Little;

CGContextRef makeBitmap(std::size_t w, std::size_t h) {
    return CGBitmapContextCreate(nullptr, w, h, 8, 0, CGColorSpaceCreateDeviceRGB(), kPremultipliedBGRA);
}

// The pixel at column x of the row `rowFromTop` of the bitmap's memory.
uint32_t pixel(const CGContextRef& c, std::size_t x, std::size_t rowFromTop) {
    auto base = static_cast<const unsigned char*>(CGBitmapContextGetData(c));
    uint32_t value;
    std::memcpy(&value, base + rowFromTop * CGBitmapContextGetBytesPerRow(c) + x * 4, 4);
    return value;
}

std::string pixels(const CGContextRef& c) {
    auto base = static_cast<const char*>(CGBitmapContextGetData(c));
    return std::string(base, CGBitmapContextGetBytesPerRow(c) * CGBitmapContextGetHeight(c));
}

// A w x 2 image: the first row of memory red, the second blue.
CGImageRef twoRowImage(std::size_t w) {
    auto c = makeBitmap(w, 2);
    CGContextSetFillColorWithColor(c, CGColorCreateGenericRGB(0, 0, 1, 1));
    CGContextFillRect(c, CGRectMake(0, 0, static_cast<CGFloat>(w), 1));  // y-up: the bottom row
    CGContextSetFillColorWithColor(c, CGColorCreateGenericRGB(1, 0, 0, 1));
    CGContextFillRect(c, CGRectMake(0, 1, static_cast<CGFloat>(w), 1));
    return CGBitmapContextCreateImage(c);
}

constexpr uint32_t kRed = 0xFFFF0000, kBlue = 0xFF0000FF, kGreen = 0xFF00FF00, kClear = 0;

}  // namespace

TEST(CGBitmapContext, AcceptsOnlyLayoutsItCanDraw) {
    auto rgb = CGColorSpaceCreateDeviceRGB(), gray = CGColorSpaceCreateDeviceGray();
    EXPECT_TRUE(CGBitmapContextCreate(nullptr, 10, 10, 8, 0, gray, kCGImageAlphaOnly));
    EXPECT_TRUE(CGBitmapContextCreate(nullptr, 10, 10, 8, 0, nullptr, kCGImageAlphaOnly));
    EXPECT_TRUE(CGBitmapContextCreate(nullptr, 10, 10, 8, 64, rgb, kPremultipliedBGRA));
    EXPECT_FALSE(CGBitmapContextCreate(nullptr, 0, 10, 8, 0, gray, kCGImageAlphaOnly));
    EXPECT_FALSE(CGBitmapContextCreate(nullptr, 10, 0, 8, 0, rgb, kPremultipliedBGRA));
    EXPECT_FALSE(CGBitmapContextCreate(nullptr, 10, 10, 16, 0, rgb, kPremultipliedBGRA));
    EXPECT_FALSE(CGBitmapContextCreate(nullptr, 10, 10, 8, 0, rgb, kCGImageAlphaPremultipliedLast));
    EXPECT_FALSE(CGBitmapContextCreate(nullptr, 10, 10, 8, 0, gray, kCGImageAlphaNone));
    EXPECT_FALSE(CGBitmapContextCreate(nullptr, 10, 10, 8, 39, rgb, kPremultipliedBGRA));  // row too short
    EXPECT_FALSE(CGBitmapContextCreate(nullptr, 10, 10, 8, 42, rgb, kPremultipliedBGRA));  // unaligned
    EXPECT_FALSE(CGBitmapContextCreate(nullptr, 100000, 10, 8, 0, gray, kCGImageAlphaOnly));
    auto mask = CGBitmapContextCreate(nullptr, 99, 50, 8, 0, gray, kCGImageAlphaOnly);
    EXPECT_EQ(CGBitmapContextGetWidth(mask), 99u);
    EXPECT_GE(CGBitmapContextGetBytesPerRow(mask), 99u);
}

TEST(CGBitmapContext, OriginIsBottomLeftAndImagesLandFirstRowAtMaxY) {
    auto c = makeBitmap(4, 4);
    CGContextSetFillColorWithColor(c, CGColorCreateGenericRGB(0, 1, 0, 1));
    CGContextFillRect(c, CGRectMake(0, 0, 1, 1));
    EXPECT_EQ(pixel(c, 0, 3), kGreen);  // the last row in memory
    EXPECT_EQ(pixel(c, 0, 0), kClear);

    // y-up: the image's first (red) row lands at the rectangle's top, the upper row in memory.
    auto image = twoRowImage(4);
    auto d = makeBitmap(4, 4);
    CGContextDrawImage(d, CGRectMake(0, 0, 4, 2), image);
    EXPECT_EQ(pixel(d, 1, 2), kRed);
    EXPECT_EQ(pixel(d, 1, 3), kBlue);
    EXPECT_EQ(pixel(d, 1, 1), kClear);

    // Flipped to y-down, as UIKit's contexts are, the same call draws it upside down.
    auto e = makeBitmap(4, 4);
    CGContextTranslateCTM(e, 0, 4);
    CGContextScaleCTM(e, 1, -1);
    CGContextDrawImage(e, CGRectMake(0, 0, 4, 2), image);
    EXPECT_EQ(pixel(e, 1, 0), kBlue);
    EXPECT_EQ(pixel(e, 1, 1), kRed);

    // Stretched, an image keeps opaque edges.
    auto f = makeBitmap(8, 8);
    CGContextDrawImage(f, CGRectMake(0, 0, 8, 8), image);
    EXPECT_EQ(pixel(f, 0, 0) >> 24, 0xFFu);
    EXPECT_EQ(pixel(f, 7, 7) >> 24, 0xFFu);
}

TEST(CGContextClipToMask, LetsThroughWhereTheMaskIsOpaqueUntilRestore) {
    // A mask whose left half is opaque; drawn y-up, so it is placed as an image is.
    auto maskContext = CGBitmapContextCreate(nullptr, 8, 8, 8, 0, CGColorSpaceCreateDeviceGray(), kCGImageAlphaOnly);
    CGContextSetFillColorWithColor(maskContext, CGColorCreateGenericGray(0, 1));
    CGContextFillRect(maskContext, CGRectMake(0, 0, 4, 8));
    auto mask = CGBitmapContextCreateImage(maskContext);

    auto c = makeBitmap(8, 8);
    CGContextSetFillColorWithColor(c, CGColorCreateGenericRGB(1, 0, 0, 1));
    CGContextSaveGState(c);
    CGContextClipToMask(c, CGRectMake(0, 0, 8, 8), mask);
    CGContextFillRect(c, CGRectMake(0, 0, 8, 8));
    CGContextRestoreGState(c);
    EXPECT_EQ(pixel(c, 1, 4), kRed);
    EXPECT_EQ(pixel(c, 6, 4), kClear);

    // The clip ends with its graphics state.
    CGContextSetFillColorWithColor(c, CGColorCreateGenericRGB(0, 0, 1, 1));
    CGContextFillRect(c, CGRectMake(6, 0, 2, 8));
    EXPECT_EQ(pixel(c, 6, 4), kBlue);
}

TEST(CGContext, SingularTransformsAndBadTextDrawNothingAndStopNothing) {
    auto c = makeBitmap(8, 8);
    CGContextSetFillColorWithColor(c, CGColorCreateGenericRGB(1, 0, 0, 1));
    CGContextSaveGState(c);
    CGContextScaleCTM(c, 0, 1);
    CGContextFillRect(c, CGRectMake(0, 0, 8, 8));
    CGContextTranslateCTM(c, std::numeric_limits<double>::quiet_NaN(), 0);
    CGContextRestoreGState(c);
    EXPECT_EQ(pixel(c, 2, 2), kClear);

    CGContextSelectFont(c, "Helvetica", 12, kCGEncodingMacRoman);
    const char bad[] = "\xff\xfe ok \xc3";
    CGContextShowTextAtPoint(c, 0, 0, bad, sizeof bad - 1);
    CGContextFillRect(c, CGRectMake(0, 0, 8, 8));
    EXPECT_EQ(pixel(c, 2, 2), kRed);
    EXPECT_EQ(c->gstateDepth(), 0u);
}

TEST(CGContextRecording, ReplaysExactlyWhatDrawingDirectlyDraws) {
    auto image = twoRowImage(6);
    auto maskContext = CGBitmapContextCreate(nullptr, 20, 20, 8, 0, nullptr, kCGImageAlphaOnly);
    CGContextSetFillColorWithColor(maskContext, CGColorCreateGenericGray(0, 0.5));
    CGContextAddPath(maskContext, CGPathCreateWithEllipseInRect(CGRectMake(0, 0, 20, 20), nullptr));
    CGContextFillPath(maskContext);
    auto mask = CGBitmapContextCreateImage(maskContext);
    auto path = CGPathCreateMutable();

    const std::function<void(const CGContextRef&)> scene = [&](const CGContextRef& c) {
        CGContextTranslateCTM(c, 0, 64);
        CGContextScaleCTM(c, 1, -1);
        CGContextSetFillColorWithColor(c, CGColorCreateGenericRGB(0.9, 0.9, 0.2, 1));
        CGContextFillRect(c, CGRectMake(0, 0, 64, 64));
        CGContextSaveGState(c);
        CGContextTranslateCTM(c, 4, 4);
        CGContextConcatCTM(c, CGAffineTransformMakeRotation(0.3));
        CGContextClipToRect(c, CGRectMake(0, 0, 30, 20));
        CGContextAddPath(c, CGPathCreateWithRoundedRect(CGRectMake(0, 0, 30, 20), 6, 6, nullptr));
        CGContextClip(c);
        CGContextSetFillColorWithColor(c, CGColorCreateGenericRGB(0.1, 0.3, 0.8, 1));
        CGContextFillRect(c, CGRectMake(0, 0, 30, 20));
        CGContextSetStrokeColorWithColor(c, CGColorCreateGenericRGB(0, 0, 0, 1));
        CGContextSetLineWidth(c, 3);
        CGContextAddRect(c, CGRectMake(2, 2, 26, 16));
        CGContextStrokePath(c);
        CGContextRestoreGState(c);
        CGContextSaveGState(c);
        CGContextClipToMask(c, CGRectMake(30, 30, 20, 20), mask);
        CGContextDrawImage(c, CGRectMake(30, 30, 20, 20), image);
        CGContextRestoreGState(c);
        CGContextSetAlpha(c, 0.5);
        CGContextBeginTransparencyLayer(c, nullptr);
        CGContextSetFillColorWithColor(c, CGColorCreateGenericRGB(1, 0, 0, 1));
        CGContextFillRect(c, CGRectMake(2, 40, 20, 20));
        CGContextEndTransparencyLayer(c);
        CGContextSetAlpha(c, 1);
        // A path changed after it was added must not change what was drawn.
        CGPathMoveToPoint(path, nullptr, 40, 2);
        CGPathAddLineToPoint(path, nullptr, 60, 2);
        CGPathAddLineToPoint(path, nullptr, 60, 20);
        CGContextAddPath(c, path);
        CGPathAddLineToPoint(path, nullptr, 40, 20);
        CGContextEOFillPath(c);
        CGContextSetTextMatrix(c, CGAffineTransformMakeScale(1, -1));
        CGContextSelectFont(c, "Helvetica-Bold", 10, kCGEncodingMacRoman);
        CGContextShowTextAtPoint(c, 2, 62, "Ag", 2);
    };

    auto direct = makeBitmap(64, 64);
    scene(direct);
    path = CGPathCreateMutable();

    auto recording = CGContext::makeRecording(CGRectMake(0, 0, 64, 64));
    scene(recording);
    auto list = recording->takeDisplayList();
    auto replayed = makeBitmap(64, 64);
    CGContext::replay(*list, replayed);
    replayed->finishMasks();

    EXPECT_NE(pixels(direct), std::string(pixels(direct).size(), '\0'));
    EXPECT_EQ(pixels(direct), pixels(replayed));
    // Drawing into a taken recording reaches nothing.
    CGContextFillRect(recording, CGRectMake(0, 0, 64, 64));
    auto again = makeBitmap(64, 64);
    CGContext::replay(*list, again);
    again->finishMasks();
    EXPECT_EQ(pixels(direct), pixels(again));
}
