#pragma once
// Drawing destinations, on cairo. A context belongs to one thread at a time. Like the platform's,
// a context has a graphics-state stack (CTM, clip, colours, line width) and a current path that
// filling, stroking and clipping consume; paths are transformed by the CTM when they're added.
//
// A bitmap context has its origin at the bottom left, y growing upward, as the platform's do; the
// context of a PDF page made by UIGraphicsPDFRenderer is flipped by UIKit: origin at the top left,
// y downward. Images are drawn the CoreGraphics way: their first row lands at the rectangle's
// maximum y, so in a flipped context they come out upside down unless the caller flips them.
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/coregraphics/CGColor.h"
#include "platform/coregraphics/CGImage.h"
#include "platform/coregraphics/CGPath.h"

typedef struct _cairo cairo_t;
typedef struct _cairo_pattern cairo_pattern_t;

namespace platform {

enum class CGPathDrawingMode { kCGPathFill, kCGPathEOFill, kCGPathStroke, kCGPathFillStroke };

class CGContext : public CFType {
public:
    // What a bitmap context draws into.
    struct Bitmap {
        std::size_t width = 0, height = 0, bytesPerRow = 0, bitsPerPixel = 0;
        std::vector<unsigned char> ownedData;  // when the caller gave no memory
    };
    // What a recording context has recorded; replayable any number of times, on any thread.
    struct DisplayList;

    // Stand-in only: draws through `cr`, taking one reference to it. `baseHeight` is the height of
    // the base space, whose y runs upward as CGContextGetCTM reports it.
    CGContext(cairo_t* cr, CGFloat baseHeight, std::unique_ptr<Bitmap> bitmap = nullptr);
    // Stand-in only: a context that only records what is drawn into it, for a page of `bounds`
    // (y downward), so that the costly part of drawing can happen later on another thread.
    static std::shared_ptr<CGContext> makeRecording(CGRect bounds);
    struct RecordingTag {};
    CGContext(RecordingTag, CGRect bounds);
    CGRect recordingBounds() const { return recordingBounds_; }
    ~CGContext() override;
    CFTypeID typeID() const override;

    // Stand-in only: the cairo context of a context that draws; null for a recording one.
    cairo_t* cairoContext() const { return cr_; }
    bool isRecording() const { return list_ != nullptr; }
    // Stand-in only: how many saved graphics states are waiting for a restore.
    std::size_t gstateDepth() const { return levels_.size() - 1; }
    // Stand-in only: ends the clips to masks and transparency layers still open, as the end of a
    // page does.
    void finishMasks();
    const Bitmap* bitmap() const { return bitmap_.get(); }
    // Stand-in only: a recording context's list so far; the context records nothing afterwards.
    std::shared_ptr<const DisplayList> takeDisplayList();
    // Stand-in only: draws what `list` recorded into `context`.
    static void replay(const DisplayList& list, const std::shared_ptr<CGContext>& context);

    // False while the CTM is singular or not finite: nothing can be drawn then (the platform draws
    // nothing too, and cairo would stop drawing for good if it were given such a matrix), or once a
    // recording has been taken.
    bool drawable() const { return !ended_ && !levels_.back().degenerate; }

    // The steps behind the CGContext functions below.
    struct Level;
    Level& state() { return levels_.back(); }
    void saveGState();
    void restoreGState();
    void concat(const CGAffineTransform& t);
    CGAffineTransform ctm() const;
    void clipToMask(CGRect rect, const CGImageRef& mask);
    void beginTransparencyLayer();
    void endTransparencyLayer();
    void showText(CGFloat x, CGFloat y, std::string_view utf8);
    template <class Command>
    void record(Command&& command);
    void useFill();
    void useStroke();

    struct Level {
        CGAffineTransform ctm;  // user space to cairo's device space
        double fill[4] = {0, 0, 0, 1};
        double stroke[4] = {0, 0, 0, 1};
        double alpha = 1;
        bool degenerate = false;
        bool transparencyLayer = false;      // a group to composite at this level's restore
        std::vector<cairo_pattern_t*> masks;  // one group pushed for each
    };
    struct Font {
        std::string family = "Helvetica";
        CGFloat size = 12;
        CGAffineTransform textMatrix;
    };
    Font font;

private:
    void popGroups(Level& level);

    cairo_t* const cr_;  // null when recording
    const CGFloat baseHeight_;
    const CGRect recordingBounds_;
    std::unique_ptr<Bitmap> bitmap_;
    std::shared_ptr<DisplayList> list_;
    std::vector<Level> levels_{1};  // the base state, then one per save
    bool ended_ = false;
};
using CGContextRef = std::shared_ptr<CGContext>;

CFTypeID CGContextGetTypeID();

// Graphics state. A restore without a save does nothing.
void CGContextSaveGState(const CGContextRef& c);
void CGContextRestoreGState(const CGContextRef& c);

// Transformation.
void CGContextTranslateCTM(const CGContextRef& c, CGFloat tx, CGFloat ty);
void CGContextScaleCTM(const CGContextRef& c, CGFloat sx, CGFloat sy);
void CGContextRotateCTM(const CGContextRef& c, CGFloat angle);
void CGContextConcatCTM(const CGContextRef& c, CGAffineTransform transform);
// The CTM from user space to the context's base space.
CGAffineTransform CGContextGetCTM(const CGContextRef& c);

// Paths and clipping.
void CGContextBeginPath(const CGContextRef& c);
void CGContextAddPath(const CGContextRef& c, const CGPathRef& path);
void CGContextAddRect(const CGContextRef& c, CGRect rect);
void CGContextMoveToPoint(const CGContextRef& c, CGFloat x, CGFloat y);
void CGContextAddLineToPoint(const CGContextRef& c, CGFloat x, CGFloat y);
void CGContextClosePath(const CGContextRef& c);
// Intersects the clip with the current path under the non-zero winding rule, and clears the path.
void CGContextClip(const CGContextRef& c);
// The same under the even-odd rule.
void CGContextEOClip(const CGContextRef& c);
void CGContextClipToRect(const CGContextRef& c, CGRect rect);
// Intersects the clip with `mask` placed in `rect` as CGContextDrawImage places an image: an alpha
// only (or gray) image whose values let drawing through; outside `rect` nothing shows. Lasts
// until the graphics state it was made in is restored.
void CGContextClipToMask(const CGContextRef& c, CGRect rect, const CGImageRef& mask);
// The bounds of the clip in user space. A recording context doesn't follow clips: it gives the
// bounds of its page.
CGRect CGContextGetClipBoundingBox(const CGContextRef& c);

// Painting.
void CGContextSetFillColorWithColor(const CGContextRef& c, const CGColorRef& color);
void CGContextSetStrokeColorWithColor(const CGContextRef& c, const CGColorRef& color);
void CGContextSetRGBFillColor(const CGContextRef& c, CGFloat r, CGFloat g, CGFloat b, CGFloat a);
void CGContextSetLineWidth(const CGContextRef& c, CGFloat width);
void CGContextFillRect(const CGContextRef& c, CGRect rect);
void CGContextFillPath(const CGContextRef& c);
void CGContextEOFillPath(const CGContextRef& c);
void CGContextStrokePath(const CGContextRef& c);
void CGContextStrokeRect(const CGContextRef& c, CGRect rect);
void CGContextDrawPath(const CGContextRef& c, CGPathDrawingMode mode);
void CGContextClearRect(const CGContextRef& c, CGRect rect);
// Draws `image` stretched to `rect`, first row at the rectangle's maximum y. With `byTiling` true
// the image repeats at its own size from the rectangle's origin, over the whole clip.
void CGContextDrawImage(const CGContextRef& c, CGRect rect, const CGImageRef& image);
void CGContextDrawTiledImage(const CGContextRef& c, CGRect rect, const CGImageRef& image);

// Global alpha, applied to everything drawn, and transparency layers: what is drawn between Begin
// and End is composited as one image, with the alpha (in force at Begin) applied once to it.
void CGContextSetAlpha(const CGContextRef& c, CGFloat alpha);
void CGContextBeginTransparencyLayer(const CGContextRef& c, const void* auxiliaryInfo);
void CGContextEndTransparencyLayer(const CGContextRef& c);

// Text, the CoreGraphics way: glyphs are upright in a y-up space, placed by the text matrix, so
// drawing into a flipped (y-down) context needs a text matrix that flips y. Text is painted with
// the fill colour and stays text in a PDF. The stand-in draws every family with one sans-serif
// face, bold when the name has "Bold" in it. Invalid UTF-8 is drawn with U+FFFD in its place.
enum CGTextEncoding { kCGEncodingFontSpecific = 0, kCGEncodingMacRoman = 1 };
void CGContextSelectFont(const CGContextRef& c, const char* name, CGFloat size, CGTextEncoding encoding);
void CGContextSetTextMatrix(const CGContextRef& c, CGAffineTransform t);
CGAffineTransform CGContextGetTextMatrix(const CGContextRef& c);
void CGContextShowTextAtPoint(const CGContextRef& c, CGFloat x, CGFloat y, const char* string, std::size_t length);

// Bitmap contexts. Supported layouts: alpha only (8 bits, kCGImageAlphaOnly, colour space gray
// or none); RGB with 8 bits a component and 32 bits a pixel, kCGImageAlphaPremultipliedFirst or
// kCGImageAlphaNoneSkipFirst with kCGBitmapByteOrder32Little. Anything else, a size of 0, or a
// bytesPerRow too small gives nullptr, as on the platform. `data` may be null (the context
// allocates and owns the memory); if given, it must outlive the context. bytesPerRow 0 lets
// the context choose.
CGContextRef CGBitmapContextCreate(void* data, std::size_t width, std::size_t height, std::size_t bitsPerComponent,
                                   std::size_t bytesPerRow, const CGColorSpaceRef& space, uint32_t bitmapInfo);
// A copy of the pixels drawn so far; nullptr if `c` is no bitmap context.
CGImageRef CGBitmapContextCreateImage(const CGContextRef& c);
void* CGBitmapContextGetData(const CGContextRef& c);
std::size_t CGBitmapContextGetWidth(const CGContextRef& c);
std::size_t CGBitmapContextGetHeight(const CGContextRef& c);
std::size_t CGBitmapContextGetBytesPerRow(const CGContextRef& c);
std::size_t CGBitmapContextGetBitsPerPixel(const CGContextRef& c);

}  // namespace platform
