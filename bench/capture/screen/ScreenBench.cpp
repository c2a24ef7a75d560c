// What one screen capture costs: the main thread's share (the walk of the views and the recording
// of their drawing), the whole CPU time once the page's PDF bytes are made, and the page's size.
// Beside it, on the same trees, the screenshot way: the same layer drawing rasterised at the
// screen's 3x scale and encoded as PNG and as JPEG. A screenshot is drawn on the main thread, so
// the raster path's main-thread figure is its whole drawing; only the encoding could move off it.
//
// Every figure is per capture. Samples are collected one per iteration and reported as counters:
// main_ms_* and cpu_ms_* as median and p95, kb the size of one page (or image).
#include <benchmark/benchmark.h>
#include <cairo.h>
#include <poppler-image.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "capture/screen/LayerRenderer.h"
#include "capture/screen/RecursiveViewProcessor.h"
#include "platform/coregraphics/CGColorSpace.h"
#include "platform/coregraphics/CGContext.h"
#include "platform/coregraphics/CGImage.h"
#include "platform/uikit/UIColor.h"
#include "platform/uikit/UIFont.h"
#include "platform/uikit/UIGraphics.h"
#include "platform/uikit/UIImage.h"
#include "platform/uikit/UIImageView.h"
#include "platform/uikit/UILabel.h"
#include "platform/uikit/UIScrollView.h"
#include "platform/uikit/UITextField.h"
#include "platform/uikit/UIView.h"

using namespace platform;

namespace {

constexpr CGFloat kScreenWidth = 390;
constexpr CGFloat kScreenHeight = 844;
constexpr CGFloat kRasterScale = 3;
constexpr const char* kRedactionTag = "private";

double processCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double wallSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// ---------------------------------------------------------------------------------------------
// Trees shaped like an app's screen.

struct Palette {
    std::shared_ptr<UIColor> page = UIColor::colorWithWhite(0.97, 1);
    std::shared_ptr<UIColor> card = UIColor::whiteColor();
    std::shared_ptr<UIColor> border = UIColor::colorWithRed(0.82, 0.84, 0.88, 1);
    std::shared_ptr<UIColor> accent = UIColor::colorWithRed(0.20, 0.45, 0.90, 1);
    std::shared_ptr<UIColor> chip = UIColor::colorWithRed(0.90, 0.93, 0.99, 1);
    std::shared_ptr<UIColor> secondaryText = UIColor::colorWithWhite(0.45, 1);
    std::shared_ptr<UIFont> title = UIFont::boldSystemFontOfSize(28);
    std::shared_ptr<UIFont> body = UIFont::systemFontOfSize(16);
    std::shared_ptr<UIFont> caption = UIFont::systemFontOfSize(13);
};

// A 96 by 96 pixel avatar (48 points at scale 2), drawn once and shared by every image view, as an
// app's image cache would.
std::shared_ptr<UIImage> makeAvatar() {
    const auto bitmap = CGBitmapContextCreate(nullptr, 96, 96, 8, 0, CGColorSpaceCreateDeviceRGB(),
                                              kCGImageAlphaPremultipliedFirst | kCGBitmapByteOrder32Little);
    for (int band = 0; band < 12; ++band) {
        const CGFloat t = band / 11.0;
        CGContextSetRGBFillColor(bitmap, 0.2 + 0.6 * t, 0.5, 0.9 - 0.6 * t, 1);
        CGContextFillRect(bitmap, CGRectMake(0, band * 8, 96, 8));
    }
    CGContextSetRGBFillColor(bitmap, 1, 1, 1, 0.9);
    CGContextFillRect(bitmap, CGRectMake(32, 20, 32, 44));
    return UIImage::imageWithCGImage(CGBitmapContextCreateImage(bitmap), 2);
}

// A 30 by 30 pixel bubble with 6-point caps, shown stretched through contentsCenter.
std::shared_ptr<UIImage> makeBubble() {
    const auto bitmap = CGBitmapContextCreate(nullptr, 30, 30, 8, 0, CGColorSpaceCreateDeviceRGB(),
                                              kCGImageAlphaPremultipliedFirst | kCGBitmapByteOrder32Little);
    CGContextSetRGBFillColor(bitmap, 0.15, 0.65, 0.45, 1);
    CGContextFillRect(bitmap, CGRectMake(0, 0, 30, 30));
    CGContextSetRGBFillColor(bitmap, 0.85, 0.97, 0.90, 1);
    CGContextFillRect(bitmap, CGRectMake(3, 3, 24, 24));
    return UIImage::imageWithCGImage(CGBitmapContextCreateImage(bitmap), 2)
        ->resizableImageWithCapInsets(UIEdgeInsetsMake(6, 6, 6, 6),
                                      UIImageResizingMode::UIImageResizingModeStretch);
}

// Makes views until a budget is spent, so a tree has the asked number of views (its last row may
// be cut short).
class TreeBuilder {
public:
    explicit TreeBuilder(int budget) : left_(budget) {}

    template <class T>
    std::shared_ptr<T> add(const std::shared_ptr<UIView>& parent, CGRect frame) {
        if (left_ <= 0) return nullptr;
        --left_;
        ++made_;
        auto view = UIView::make<T>(frame);
        if (parent) parent->addSubview(view);
        return view;
    }
    std::shared_ptr<UILabel> label(const std::shared_ptr<UIView>& parent, CGRect frame, std::string text,
                                   const std::shared_ptr<UIFont>& font,
                                   const std::shared_ptr<UIColor>& color) {
        auto view = add<UILabel>(parent, frame);
        if (view) {
            view->setText(std::move(text));
            view->setFont(font);
            view->setTextColor(color);
        }
        return view;
    }
    bool spent() const { return left_ <= 0; }
    int made() const { return made_; }

private:
    int left_;
    int made_ = 0;
};

struct Tree {
    std::shared_ptr<UIView> root;
    int views = 0;
};

const Palette& palette() {
    static const Palette made;
    return made;
}
const std::shared_ptr<UIImage>& avatar() {
    static const auto made = makeAvatar();
    return made;
}
const std::shared_ptr<UIImage>& bubble() {
    static const auto made = makeBubble();
    return made;
}

void roundCard(UIView& view, CGFloat radius) {
    view.setBackgroundColor(palette().card);
    view.layer()->setCornerRadius(radius);
    view.layer()->setBorderWidth(1);
    view.layer()->setBorderColor(palette().border->CGColor());
    view.layer()->setMasksToBounds(true);
}

std::shared_ptr<UIView> makeRoot(TreeBuilder& builder) {
    auto root = builder.add<UIView>(nullptr, CGRectMake(0, 0, kScreenWidth, kScreenHeight));
    root->setBackgroundColor(palette().page);
    if (auto header = builder.add<UIView>(root, CGRectMake(0, 0, kScreenWidth, 100))) {
        header->setBackgroundColor(palette().card);
        builder.label(header, CGRectMake(20, 44, 250, 34), "Messages", palette().title,
                      UIColor::blackColor());
        builder.label(header, CGRectMake(20, 76, 300, 18), "12 unread, 3 mentions", palette().caption,
                      palette().secondaryText);
    }
    return root;
}

// A header and a list of rows in a vertical scroll view. The list goes on past the bottom of the
// screen as a real list does: the page shows only what is on screen, but the walk visits every
// view, so the larger trees measure the walk more than the drawing.
Tree makeListScreen(int viewCount) {
    TreeBuilder builder(viewCount);
    Tree tree;
    tree.root = makeRoot(builder);
    auto list = builder.add<UIScrollView>(tree.root, CGRectMake(0, 100, kScreenWidth, kScreenHeight - 100));
    CGFloat y = 8;
    for (int row = 0; list && !builder.spent(); ++row) {
        const bool withChips = row % 4 == 3;
        const bool withSecret = row % 10 == 9;
        const CGFloat height = 72 + (withChips ? 40 : 0) + (withSecret ? 40 : 0);
        auto card = builder.add<UIView>(list, CGRectMake(12, y, kScreenWidth - 24, height));
        y += height + 8;
        if (!card) break;
        roundCard(*card, 12);

        if (auto image = builder.add<UIImageView>(card, CGRectMake(12, 12, 48, 48))) {
            image->setImage(row % 3 == 2 ? bubble() : avatar());
        }
        builder.label(card, CGRectMake(72, 12, 260, 22), "Contact " + std::to_string(row + 1), palette().body,
                      UIColor::blackColor());
        if (auto preview = builder.label(card, CGRectMake(72, 36, 260, 20), "See you at 6 by the station",
                                         palette().caption, palette().secondaryText);
            preview && row % 5 == 4) {
            preview->setAccessibilityIdentifier(kRedactionTag);
        }

        CGFloat extraY = 72;
        if (withChips) {
            if (auto chips = builder.add<UIScrollView>(card, CGRectMake(12, extraY, kScreenWidth - 48, 32))) {
                chips->setContentSize(CGSizeMake(5 * 96, 32));
                for (int i = 0; i < 5; ++i) {
                    auto chip =
                        builder.label(chips, CGRectMake(i * 96, 2, 88, 28), "Tag " + std::to_string(i + 1),
                                      palette().caption, palette().accent);
                    if (!chip) break;
                    chip->setTextAlignment(NSTextAlignment::NSTextAlignmentCenter);
                    chip->setBackgroundColor(palette().chip);
                    chip->layer()->setCornerRadius(14);
                }
            }
            extraY += 40;
        }
        if (withSecret) {
            if (auto field = builder.add<UITextField>(card, CGRectMake(12, extraY, kScreenWidth - 48, 32))) {
                field->setSecureTextEntry(true);
                field->setText("hunter2");
            }
        }
    }
    if (list) list->setContentSize(CGSizeMake(kScreenWidth, y));
    tree.views = builder.made();
    return tree;
}

// Worst case for the page: small cards in a grid that fits the screen, so every view is drawn.
Tree makeGridScreen(int viewCount) {
    TreeBuilder builder(viewCount);
    Tree tree;
    tree.root = makeRoot(builder);
    constexpr int kColumns = 13;
    constexpr CGFloat kCellWidth = kScreenWidth / kColumns;
    // The page is shorter than the screen (792 points): 26 rows of 26 fit on it below the header.
    constexpr CGFloat kCellHeight = 26;
    for (int cell = 0; !builder.spent(); ++cell) {
        const CGFloat x = (cell % kColumns) * kCellWidth;
        const CGFloat y = 104 + (cell / kColumns) * kCellHeight;
        auto card = builder.add<UIView>(tree.root, CGRectMake(x + 1, y + 1, kCellWidth - 2, kCellHeight - 2));
        if (!card) break;
        roundCard(*card, 4);
        if (auto image = builder.add<UIImageView>(card, CGRectMake(2, 2, 10, 10))) {
            image->setImage(cell % 5 == 4 ? bubble() : avatar());
        }
        if (auto label = builder.label(card, CGRectMake(2, 12, kCellWidth - 6, 12), std::to_string(cell),
                                       UIFont::systemFontOfSize(9), UIColor::blackColor());
            label && cell % 11 == 10) {
            label->setAccessibilityIdentifier(kRedactionTag);
        }
    }
    tree.views = builder.made();
    return tree;
}

// ---------------------------------------------------------------------------------------------
// Measuring.

struct Sample {
    double mainSeconds = 0;
    double cpuSeconds = 0;
    std::size_t bytes = 0;
};

double percentile(std::vector<double> values, double fraction) {
    std::sort(values.begin(), values.end());
    const auto index = static_cast<std::size_t>(std::ceil(fraction * static_cast<double>(values.size()))) - 1;
    return values[std::min(index, values.size() - 1)];
}

// One capture per iteration; the benchmark's own time column shows the main thread's share.
void run(benchmark::State& state, const Tree& tree, const std::function<Sample()>& capture) {
    capture();  // fonts and caches warm, as they are from the second capture of a session on
    std::vector<double> main;
    std::vector<double> cpu;
    std::size_t bytes = 0;
    for (auto _ : state) {
        const Sample sample = capture();
        state.SetIterationTime(sample.mainSeconds);
        main.push_back(sample.mainSeconds * 1e3);
        cpu.push_back(sample.cpuSeconds * 1e3);
        bytes = sample.bytes;
    }
    state.counters["views"] = tree.views;
    state.counters["main_ms_median"] = percentile(main, 0.5);
    state.counters["main_ms_p95"] = percentile(main, 0.95);
    state.counters["cpu_ms_median"] = percentile(cpu, 0.5);
    state.counters["cpu_ms_p95"] = percentile(cpu, 0.95);
    state.counters["kb"] = static_cast<double>(bytes) / 1024.0;
}

const quillmere::RecursiveViewProcessor& processor() {
    static const quillmere::RecursiveViewProcessor made({kRedactionTag});
    return made;
}

// The library's path: the walk and recording on the main thread, the PDF made on first read.
Sample capturePdf(const Tree& tree) {
    Sample sample;
    const double cpuStart = processCpuSeconds();
    const double wallStart = wallSeconds();
    const auto page = processor().renderViews({tree.root});
    sample.mainSeconds = wallSeconds() - wallStart;
    sample.bytes = page->length();
    sample.cpuSeconds = processCpuSeconds() - cpuStart;
    return sample;
}

// The screenshot way, through the same layer drawing: a bitmap the screen's pixel size, y downward
// like UIKit's, with the bitmap as UIKit's current context for views and images that draw
// themselves.
CGContextRef rasterise(const Tree& tree) {
    const auto width = static_cast<std::size_t>(kScreenWidth * kRasterScale);
    const auto height = static_cast<std::size_t>(kScreenHeight * kRasterScale);
    const auto bitmap = CGBitmapContextCreate(nullptr, width, height, 8, 0, CGColorSpaceCreateDeviceRGB(),
                                              kCGImageAlphaNoneSkipFirst | kCGBitmapByteOrder32Little);
    CGContextTranslateCTM(bitmap, 0, static_cast<CGFloat>(height));
    CGContextScaleCTM(bitmap, kRasterScale, -kRasterScale);
    static const quillmere::LayerRenderer renderer(processor());
    UIGraphicsPushContext(bitmap);
    renderer.drawLayer(*tree.root->layer(), bitmap);
    UIGraphicsPopContext();
    return bitmap;
}

cairo_status_t appendPng(void* closure, const unsigned char* data, unsigned int length) {
    auto bytes = static_cast<std::vector<unsigned char>*>(closure);
    bytes->insert(bytes->end(), data, data + length);
    return CAIRO_STATUS_SUCCESS;
}

Sample captureRasterPng(const Tree& tree) {
    Sample sample;
    const double cpuStart = processCpuSeconds();
    const double wallStart = wallSeconds();
    const auto bitmap = rasterise(tree);
    sample.mainSeconds = wallSeconds() - wallStart;
    cairo_surface_t* surface = cairo_get_target(bitmap->cairoContext());
    cairo_surface_flush(surface);
    std::vector<unsigned char> png;
    cairo_surface_write_to_png_stream(surface, appendPng, &png);
    sample.cpuSeconds = processCpuSeconds() - cpuStart;
    sample.bytes = png.size();
    return sample;
}

// poppler writes images only to files: one scratch file for the whole run, removed at exit.
struct ScratchFile {
    std::string path =
        (std::filesystem::temp_directory_path() / ("qlm-bench-screen-" + std::to_string(getpid()) + ".jpg"))
            .string();
    ~ScratchFile() {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
};

const std::string& jpegPath() {
    static const ScratchFile made;
    return made.path;
}

Sample captureRasterJpeg(const Tree& tree) {
    Sample sample;
    const double cpuStart = processCpuSeconds();
    const double wallStart = wallSeconds();
    const auto bitmap = rasterise(tree);
    sample.mainSeconds = wallSeconds() - wallStart;
    cairo_surface_flush(cairo_get_target(bitmap->cairoContext()));
    // Rows of four bytes a pixel with nothing between them, which is what poppler's image expects.
    const poppler::image pixels(
        static_cast<char*>(CGBitmapContextGetData(bitmap)), static_cast<int>(CGBitmapContextGetWidth(bitmap)),
        static_cast<int>(CGBitmapContextGetHeight(bitmap)), poppler::image::format_argb32);
    const bool saved = pixels.save(jpegPath(), "jpeg");
    sample.cpuSeconds = processCpuSeconds() - cpuStart;
    std::error_code error;
    sample.bytes = saved ? static_cast<std::size_t>(std::filesystem::file_size(jpegPath(), error)) : 0;
    return sample;
}

// ---------------------------------------------------------------------------------------------
// Registration: every path on every tree, with enough captures for a p95 on the large ones
// without taking all day on two cores.

int capturesFor(int views) {
    if (views <= 100) return 100;
    if (views <= 1000) return 40;
    return 20;
}

struct Shape {
    const char* name;
    Tree (*make)(int);
    std::vector<int> sizes;
};

struct Path {
    const char* name;
    Sample (*capture)(const Tree&);
};

const bool registered = [] {
    const std::vector<Shape> shapes = {{"list", makeListScreen, {10, 100, 1000, 5000}},
                                       {"grid_all_visible", makeGridScreen, {1000}}};
    const std::vector<Path> paths = {
        {"pdf", capturePdf}, {"raster_png", captureRasterPng}, {"raster_jpeg", captureRasterJpeg}};
    for (const auto& path : paths) {
        for (const auto& shape : shapes) {
            for (const int size : shape.sizes) {
                const std::string name = std::string("BM_Capture_") + path.name + "/" + shape.name;
                benchmark::RegisterBenchmark(
                    name.c_str(),
                    [make = shape.make, capture = path.capture](benchmark::State& state) {
                        const Tree tree = make(static_cast<int>(state.range(0)));
                        run(state, tree, [&] { return capture(tree); });
                    })
                    ->Arg(size)
                    ->Iterations(capturesFor(size))
                    ->UseManualTime()
                    ->Unit(benchmark::kMillisecond);
            }
        }
    }
    return true;
}();

}  // namespace
