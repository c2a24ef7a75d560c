#include "platform/coregraphics/CGContext.h"

#include <cairo.h>

#include <cmath>
#include <cstring>
#include <deque>
#include <limits>
#include <variant>

#include "platform/coregraphics/detail/CairoText.h"

namespace platform {

CFTypeID CGContextGetTypeID() { return 45; }

namespace {

bool finite(CGFloat v) { return std::isfinite(v); }
bool finiteRect(CGRect r) {
    return finite(r.origin.x) && finite(r.origin.y) && finite(r.size.width) && finite(r.size.height);
}

// Where an image lands in user space: its first row at the rectangle's maximum y, as the platform
// draws images. The matrix maps user space to image pixels.
cairo_matrix_t imagePlacement(CGRect rect, double width, double height) {
    rect = CGRectStandardize(rect);
    cairo_matrix_t m;
    cairo_matrix_init(&m, width / rect.size.width, 0, 0, -height / rect.size.height,
                      -rect.origin.x * width / rect.size.width,
                      (rect.origin.y + rect.size.height) * height / rect.size.height);
    return m;
}

// A mask's coverage: the alpha of an alpha-only image, else its brightness.
cairo_surface_t* coverageOf(const CGImage& image) {
    cairo_surface_t* source = image.surface();
    if (cairo_image_surface_get_format(source) == CAIRO_FORMAT_A8) return cairo_surface_reference(source);
    int w = cairo_image_surface_get_width(source), h = cairo_image_surface_get_height(source);
    cairo_surface_t* alpha = cairo_image_surface_create(CAIRO_FORMAT_A8, w, h);
    cairo_surface_flush(source);
    const unsigned char* in = cairo_image_surface_get_data(source);
    unsigned char* out = cairo_image_surface_get_data(alpha);
    int inStride = cairo_image_surface_get_stride(source), outStride = cairo_image_surface_get_stride(alpha);
    for (int y = 0; y < h; ++y) {
        auto row = reinterpret_cast<const uint32_t*>(in + y * inStride);
        for (int x = 0; x < w; ++x) {
            uint32_t p = row[x];
            unsigned r = (p >> 16) & 0xFF, g = (p >> 8) & 0xFF, b = p & 0xFF;
            out[y * outStride + x] = static_cast<unsigned char>((r * 299 + g * 587 + b * 114) / 1000);
        }
    }
    cairo_surface_mark_dirty(alpha);
    return alpha;
}

void addPath(cairo_t* cr, const CGPath& path) {
    for (const auto& e : path.elements()) {
        switch (e.type) {
            case CGPathElementType::moveToPoint:
                cairo_move_to(cr, e.points[0].x, e.points[0].y);
                break;
            case CGPathElementType::addLineToPoint:
                cairo_line_to(cr, e.points[0].x, e.points[0].y);
                break;
            case CGPathElementType::addCurveToPoint:
                cairo_curve_to(cr, e.points[0].x, e.points[0].y, e.points[1].x, e.points[1].y, e.points[2].x,
                               e.points[2].y);
                break;
            case CGPathElementType::closeSubpath:
                cairo_close_path(cr);
                break;
        }
    }
}

bool finitePath(const CGPath& path) {
    for (const auto& e : path.elements())
        for (const auto& p : e.points)
            if (!finite(p.x) || !finite(p.y)) return false;
    return true;
}

cairo_matrix_t toCairo(const CGAffineTransform& t) { return {t.a, t.b, t.c, t.d, t.tx, t.ty}; }

// What a recording context records: one entry per call, replayed by calling the same function.
struct Save {};
struct Restore {};
struct Concat { CGAffineTransform t; };
struct BeginPath {};
struct AddPath { CGPathRef path; };
struct AddRect { CGRect rect; };
struct MoveTo { CGPoint p; };
struct LineTo { CGPoint p; };
struct ClosePath {};
struct Clip { bool evenOdd; };
struct ClipToRect { CGRect rect; };
struct ClipToMask { CGRect rect; CGImageRef mask; };
struct SetFill { double rgba[4]; };
struct SetStroke { double rgba[4]; };
struct SetLineWidth { CGFloat width; };
struct SetAlpha { CGFloat alpha; };
struct FillRect { CGRect rect; };
struct DrawPath { CGPathDrawingMode mode; };
struct StrokeRect { CGRect rect; };
struct ClearRect { CGRect rect; };
struct DrawImage { CGRect rect; CGImageRef image; bool tiled; };
struct BeginLayer {};
struct EndLayer {};
struct SelectFont { std::string name; CGFloat size; };
struct SetTextMatrix { CGAffineTransform t; };
struct ShowText { CGPoint p; std::string text; };

using Command = std::variant<Save, Restore, Concat, BeginPath, AddPath, AddRect, MoveTo, LineTo, ClosePath, Clip,
                             ClipToRect, ClipToMask, SetFill, SetStroke, SetLineWidth, SetAlpha, FillRect, DrawPath,
                             StrokeRect, ClearRect, DrawImage, BeginLayer, EndLayer, SelectFont, SetTextMatrix,
                             ShowText>;

template <class... F>
struct Overloaded : F... {
    using F::operator()...;
};
template <class... F>
Overloaded(F...) -> Overloaded<F...>;

}  // namespace

struct CGContext::DisplayList {
    // A deque: a page of a few thousand views records tens of thousands of calls, and a vector would
    // move them all each time it grew, on the drawing thread.
    std::deque<Command> commands;
};

template <class C>
void CGContext::record(C&& command) {
    if (!ended_) list_->commands.emplace_back(std::forward<C>(command));
}

CGContext::CGContext(cairo_t* cr, CGFloat baseHeight, std::unique_ptr<Bitmap> bitmap)
    : cr_(cairo_reference(cr)), baseHeight_(baseHeight), recordingBounds_(CGRectZero), bitmap_(std::move(bitmap)) {
    cairo_matrix_t m;
    cairo_get_matrix(cr_, &m);
    levels_.back().ctm = {m.xx, m.yx, m.xy, m.yy, m.x0, m.y0};
}

std::shared_ptr<CGContext> CGContext::makeRecording(CGRect bounds) {
    return std::make_shared<CGContext>(RecordingTag{}, bounds);
}

CGContext::CGContext(RecordingTag, CGRect bounds)
    : cr_(nullptr),
      baseHeight_(CGRectGetHeight(bounds)),
      recordingBounds_(CGRectStandardize(bounds)),
      list_(std::make_shared<DisplayList>()) {}

CGContext::~CGContext() {
    for (auto& level : levels_)
        for (auto mask : level.masks) cairo_pattern_destroy(mask);
    if (cr_) cairo_destroy(cr_);
}

CFTypeID CGContext::typeID() const { return CGContextGetTypeID(); }

std::shared_ptr<const CGContext::DisplayList> CGContext::takeDisplayList() {
    ended_ = true;
    return list_;
}

void CGContext::saveGState() {
    if (cr_) cairo_save(cr_);
    Level next;
    const Level& current = levels_.back();
    next.ctm = current.ctm;
    std::memcpy(next.fill, current.fill, sizeof next.fill);
    std::memcpy(next.stroke, current.stroke, sizeof next.stroke);
    next.alpha = current.alpha;
    next.degenerate = current.degenerate;
    levels_.push_back(std::move(next));
}

void CGContext::restoreGState() {
    if (levels_.size() == 1) return;
    popGroups(levels_.back());
    levels_.pop_back();
    if (cr_) cairo_restore(cr_);
}

void CGContext::finishMasks() {
    while (levels_.size() > 1) restoreGState();
    popGroups(levels_.back());
}

// What was drawn since a clip to a mask (or a transparency layer) began went into a group; the
// group now goes down through the mask (or with the layer's alpha), in the graphics state the
// group was begun in.
void CGContext::popGroups(Level& level) {
    if (!cr_) return;
    while (!level.masks.empty()) {
        cairo_pattern_t* mask = level.masks.back();
        level.masks.pop_back();
        cairo_pop_group_to_source(cr_);
        cairo_mask(cr_, mask);
        cairo_pattern_destroy(mask);
    }
    if (level.transparencyLayer) {
        level.transparencyLayer = false;
        cairo_pop_group_to_source(cr_);
        cairo_paint_with_alpha(cr_, levels_.size() > 1 ? levels_[levels_.size() - 2].alpha : 1);
    }
}

void CGContext::concat(const CGAffineTransform& t) {
    Level& level = levels_.back();
    if (level.degenerate) return;
    CGAffineTransform next = CGAffineTransformConcat(t, level.ctm);
    double det = next.a * next.d - next.b * next.c;
    if (!std::isfinite(det) || det == 0 || !std::isfinite(next.tx) || !std::isfinite(next.ty)) {
        level.degenerate = true;
        return;
    }
    level.ctm = next;
    if (cr_) {
        cairo_matrix_t m = toCairo(next);
        cairo_set_matrix(cr_, &m);
    }
}

CGAffineTransform CGContext::ctm() const {
    const CGAffineTransform& m = levels_.back().ctm;
    // cairo's device space runs downward; the platform's base space runs upward.
    return {m.a, -m.b, m.c, -m.d, m.tx, baseHeight_ - m.ty};
}

void CGContext::clipToMask(CGRect rect, const CGImageRef& mask) {
    if (!drawable() || !finiteRect(rect)) return;
    if (!cr_) return record(ClipToMask{rect, mask});
    rect = CGRectStandardize(rect);
    if (!mask || rect.size.width == 0 || rect.size.height == 0 || mask->width() == 0 || mask->height() == 0) {
        // Nothing can show through an empty mask.
        cairo_new_path(cr_);
        cairo_rectangle(cr_, 0, 0, 0, 0);
        cairo_clip(cr_);
        return;
    }
    cairo_new_path(cr_);
    cairo_rectangle(cr_, rect.origin.x, rect.origin.y, rect.size.width, rect.size.height);
    cairo_set_fill_rule(cr_, CAIRO_FILL_RULE_WINDING);
    cairo_clip(cr_);
    cairo_surface_t* coverage = coverageOf(*mask);
    cairo_pattern_t* pattern = cairo_pattern_create_for_surface(coverage);
    cairo_surface_destroy(coverage);
    cairo_matrix_t m = imagePlacement(rect, static_cast<double>(mask->width()), static_cast<double>(mask->height()));
    cairo_pattern_set_matrix(pattern, &m);
    levels_.back().masks.push_back(pattern);
    cairo_push_group(cr_);
}

void CGContext::beginTransparencyLayer() {
    if (!cr_) record(BeginLayer{});
    saveGState();
    levels_.back().transparencyLayer = true;
    levels_.back().alpha = 1;
    if (cr_) cairo_push_group(cr_);
}

void CGContext::endTransparencyLayer() {
    if (levels_.size() == 1 || !levels_.back().transparencyLayer) return;
    if (!cr_) record(EndLayer{});
    // A transparency layer ends like a restore; the masks made inside it end with it.
    restoreGState();
}

void CGContext::useFill() {
    const Level& l = levels_.back();
    cairo_set_source_rgba(cr_, l.fill[0], l.fill[1], l.fill[2], l.fill[3] * l.alpha);
}

void CGContext::useStroke() {
    const Level& l = levels_.back();
    cairo_set_source_rgba(cr_, l.stroke[0], l.stroke[1], l.stroke[2], l.stroke[3] * l.alpha);
}

void CGContext::showText(CGFloat x, CGFloat y, std::string_view utf8) {
    if (!drawable() || !finite(x) || !finite(y) || utf8.empty()) return;
    if (!cr_) return record(ShowText{{x, y}, std::string(utf8)});
    std::string text = detail::validUtf8(utf8);
    const CGAffineTransform& t = font.textMatrix;
    CGFloat size = font.size;
    // Glyphs are designed y-up in text space and y-down in cairo's: flip between the two.
    cairo_matrix_t fontMatrix{t.a * size, t.b * size, -t.c * size, -t.d * size, 0, 0};
    double det = fontMatrix.xx * fontMatrix.yy - fontMatrix.xy * fontMatrix.yx;
    if (!std::isfinite(det) || det == 0) return;
    bool bold = font.family.find("Bold") != std::string::npos;
    cairo_save(cr_);
    cairo_new_path(cr_);
    cairo_select_font_face(cr_, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_matrix(cr_, &fontMatrix);
    cairo_move_to(cr_, x + t.tx, y + t.ty);
    useFill();
    cairo_show_text(cr_, text.c_str());
    cairo_restore(cr_);
}

void CGContext::replay(const DisplayList& list, const std::shared_ptr<CGContext>& c) {
    for (const Command& command : list.commands) {
        std::visit(Overloaded{
                       [&](const Save&) { CGContextSaveGState(c); },
                       [&](const Restore&) { CGContextRestoreGState(c); },
                       [&](const Concat& x) { CGContextConcatCTM(c, x.t); },
                       [&](const BeginPath&) { CGContextBeginPath(c); },
                       [&](const AddPath& x) { CGContextAddPath(c, x.path); },
                       [&](const AddRect& x) { CGContextAddRect(c, x.rect); },
                       [&](const MoveTo& x) { CGContextMoveToPoint(c, x.p.x, x.p.y); },
                       [&](const LineTo& x) { CGContextAddLineToPoint(c, x.p.x, x.p.y); },
                       [&](const ClosePath&) { CGContextClosePath(c); },
                       [&](const Clip& x) { x.evenOdd ? CGContextEOClip(c) : CGContextClip(c); },
                       [&](const ClipToRect& x) { CGContextClipToRect(c, x.rect); },
                       [&](const ClipToMask& x) { CGContextClipToMask(c, x.rect, x.mask); },
                       [&](const SetFill& x) { CGContextSetRGBFillColor(c, x.rgba[0], x.rgba[1], x.rgba[2], x.rgba[3]); },
                       [&](const SetStroke& x) { std::memcpy(c->state().stroke, x.rgba, sizeof x.rgba); },
                       [&](const SetLineWidth& x) { CGContextSetLineWidth(c, x.width); },
                       [&](const SetAlpha& x) { CGContextSetAlpha(c, x.alpha); },
                       [&](const FillRect& x) { CGContextFillRect(c, x.rect); },
                       [&](const DrawPath& x) { CGContextDrawPath(c, x.mode); },
                       [&](const StrokeRect& x) { CGContextStrokeRect(c, x.rect); },
                       [&](const ClearRect& x) { CGContextClearRect(c, x.rect); },
                       [&](const DrawImage& x) {
                           x.tiled ? CGContextDrawTiledImage(c, x.rect, x.image) : CGContextDrawImage(c, x.rect, x.image);
                       },
                       [&](const BeginLayer&) { CGContextBeginTransparencyLayer(c, nullptr); },
                       [&](const EndLayer&) { CGContextEndTransparencyLayer(c); },
                       [&](const SelectFont& x) {
                           CGContextSelectFont(c, x.name.c_str(), x.size, kCGEncodingMacRoman);
                       },
                       [&](const SetTextMatrix& x) { CGContextSetTextMatrix(c, x.t); },
                       [&](const ShowText& x) { CGContextShowTextAtPoint(c, x.p.x, x.p.y, x.text.data(), x.text.size()); },
                   },
                   command);
    }
}

void CGContextSaveGState(const CGContextRef& c) {
    if (!c) return;
    if (c->isRecording()) c->record(Save{});
    c->saveGState();
}

void CGContextRestoreGState(const CGContextRef& c) {
    if (!c || c->gstateDepth() == 0) return;
    if (c->isRecording()) c->record(Restore{});
    c->restoreGState();
}

void CGContextTranslateCTM(const CGContextRef& c, CGFloat tx, CGFloat ty) {
    CGContextConcatCTM(c, CGAffineTransformMakeTranslation(tx, ty));
}

void CGContextScaleCTM(const CGContextRef& c, CGFloat sx, CGFloat sy) {
    CGContextConcatCTM(c, CGAffineTransformMakeScale(sx, sy));
}

void CGContextRotateCTM(const CGContextRef& c, CGFloat angle) {
    CGContextConcatCTM(c, CGAffineTransformMakeRotation(angle));
}

void CGContextConcatCTM(const CGContextRef& c, CGAffineTransform transform) {
    if (!c || !c->drawable()) return;
    if (c->isRecording()) c->record(Concat{transform});
    c->concat(transform);
}

CGAffineTransform CGContextGetCTM(const CGContextRef& c) { return c ? c->ctm() : CGAffineTransformIdentity; }

void CGContextBeginPath(const CGContextRef& c) {
    if (!c) return;
    if (c->isRecording()) return c->record(BeginPath{});
    cairo_new_path(c->cairoContext());
}

void CGContextAddPath(const CGContextRef& c, const CGPathRef& path) {
    if (!c || !path || !c->drawable() || !finitePath(*path)) return;
    if (c->isRecording()) {
        // A mutable path may change after this call; the context keeps it as it is now.
        if (path->isMutable()) return c->record(AddPath{static_cast<const CGMutablePath&>(*path).copy()});
        return c->record(AddPath{path});
    }
    addPath(c->cairoContext(), *path);
}

void CGContextAddRect(const CGContextRef& c, CGRect r) {
    if (!c || !c->drawable() || !finiteRect(r)) return;
    if (c->isRecording()) return c->record(AddRect{r});
    cairo_rectangle(c->cairoContext(), r.origin.x, r.origin.y, r.size.width, r.size.height);
}

void CGContextMoveToPoint(const CGContextRef& c, CGFloat x, CGFloat y) {
    if (!c || !c->drawable() || !finite(x) || !finite(y)) return;
    if (c->isRecording()) return c->record(MoveTo{{x, y}});
    cairo_move_to(c->cairoContext(), x, y);
}

void CGContextAddLineToPoint(const CGContextRef& c, CGFloat x, CGFloat y) {
    if (!c || !c->drawable() || !finite(x) || !finite(y)) return;
    if (c->isRecording()) return c->record(LineTo{{x, y}});
    cairo_line_to(c->cairoContext(), x, y);
}

void CGContextClosePath(const CGContextRef& c) {
    if (!c || !c->drawable()) return;
    if (c->isRecording()) return c->record(ClosePath{});
    cairo_close_path(c->cairoContext());
}

static void clipWith(const CGContextRef& c, bool evenOdd) {
    if (!c) return;
    if (c->isRecording()) {
        // Even a clip that can't apply consumes the path.
        return c->record(c->drawable() ? Command(Clip{evenOdd}) : Command(BeginPath{}));
    }
    cairo_t* cr = c->cairoContext();
    if (!c->drawable()) {
        cairo_new_path(cr);
        return;
    }
    cairo_set_fill_rule(cr, evenOdd ? CAIRO_FILL_RULE_EVEN_ODD : CAIRO_FILL_RULE_WINDING);
    cairo_clip(cr);
}

namespace {

// Runs `use` on the rectangle `r` as cairo's path, and puts the path that was current back after.
template <class Use>
void withRectangleAside(cairo_t* cr, CGRect r, Use use) {
    cairo_path_t* path = cairo_has_current_point(cr) ? cairo_copy_path(cr) : nullptr;
    cairo_new_path(cr);
    cairo_rectangle(cr, r.origin.x, r.origin.y, r.size.width, r.size.height);
    use(cr);
    if (path) {
        cairo_append_path(cr, path);
        cairo_path_destroy(path);
    }
}

}  // namespace

void CGContextClip(const CGContextRef& c) { clipWith(c, false); }
void CGContextEOClip(const CGContextRef& c) { clipWith(c, true); }

void CGContextClipToRect(const CGContextRef& c, CGRect r) {
    if (!c || !c->drawable() || !finiteRect(r)) return;
    if (c->isRecording()) return c->record(ClipToRect{r});
    // The platform keeps the current path across a clip to a rectangle.
    withRectangleAside(c->cairoContext(), r, [](cairo_t* cr) {
        cairo_set_fill_rule(cr, CAIRO_FILL_RULE_WINDING);
        cairo_clip(cr);
    });
}

void CGContextClipToMask(const CGContextRef& c, CGRect rect, const CGImageRef& mask) {
    if (c) c->clipToMask(rect, mask);
}

CGRect CGContextGetClipBoundingBox(const CGContextRef& c) {
    if (!c || !c->drawable()) return CGRectNull;
    if (c->isRecording()) {
        CGAffineTransform toUser = CGAffineTransformInvert(c->state().ctm);
        CGRect page = CGRectMake(0, 0, CGRectGetWidth(c->recordingBounds()), CGRectGetHeight(c->recordingBounds()));
        return CGRectApplyAffineTransform(page, toUser);
    }
    double x0, y0, x1, y1;
    cairo_clip_extents(c->cairoContext(), &x0, &y0, &x1, &y1);
    return CGRectMake(x0, y0, x1 - x0, y1 - y0);
}

void CGContextSetFillColorWithColor(const CGContextRef& c, const CGColorRef& color) {
    if (!c || !color) return;
    double rgba[4];
    color->getRGBA(rgba);
    CGContextSetRGBFillColor(c, rgba[0], rgba[1], rgba[2], rgba[3]);
}

void CGContextSetRGBFillColor(const CGContextRef& c, CGFloat r, CGFloat g, CGFloat b, CGFloat a) {
    if (!c) return;
    auto& fill = c->state().fill;
    if (fill[0] == r && fill[1] == g && fill[2] == b && fill[3] == a) return;
    fill[0] = r, fill[1] = g, fill[2] = b, fill[3] = a;
    if (c->isRecording()) c->record(SetFill{{r, g, b, a}});
}

void CGContextSetStrokeColorWithColor(const CGContextRef& c, const CGColorRef& color) {
    if (!c || !color) return;
    double rgba[4];
    color->getRGBA(rgba);
    auto& stroke = c->state().stroke;
    if (std::memcmp(stroke, rgba, sizeof rgba) == 0) return;
    std::memcpy(stroke, rgba, sizeof rgba);
    if (c->isRecording()) c->record(SetStroke{{rgba[0], rgba[1], rgba[2], rgba[3]}});
}

void CGContextSetLineWidth(const CGContextRef& c, CGFloat width) {
    if (!c || !finite(width) || width < 0) return;
    if (c->isRecording()) return c->record(SetLineWidth{width});
    cairo_set_line_width(c->cairoContext(), width);
}

void CGContextSetAlpha(const CGContextRef& c, CGFloat alpha) {
    if (!c || !finite(alpha)) return;
    alpha = alpha < 0 ? 0 : alpha > 1 ? 1 : alpha;
    if (c->isRecording()) c->record(SetAlpha{alpha});
    c->state().alpha = alpha;
}

void CGContextBeginTransparencyLayer(const CGContextRef& c, const void*) {
    if (c) c->beginTransparencyLayer();
}

void CGContextEndTransparencyLayer(const CGContextRef& c) {
    if (c) c->endTransparencyLayer();
}

void CGContextFillRect(const CGContextRef& c, CGRect r) {
    if (!c || !c->drawable() || !finiteRect(r)) return;
    if (c->isRecording()) return c->record(FillRect{r});
    // Filling a rectangle leaves the current path alone.
    withRectangleAside(c->cairoContext(), r, [&c](cairo_t* cr) {
        c->useFill();
        cairo_set_fill_rule(cr, CAIRO_FILL_RULE_WINDING);
        cairo_fill(cr);
    });
}

void CGContextDrawPath(const CGContextRef& c, CGPathDrawingMode mode) {
    if (!c) return;
    if (c->isRecording()) return c->record(c->drawable() ? Command(DrawPath{mode}) : Command(BeginPath{}));
    cairo_t* cr = c->cairoContext();
    if (!c->drawable()) {
        cairo_new_path(cr);
        return;
    }
    bool fill = mode != CGPathDrawingMode::kCGPathStroke;
    bool stroke = mode == CGPathDrawingMode::kCGPathStroke || mode == CGPathDrawingMode::kCGPathFillStroke;
    if (fill) {
        cairo_set_fill_rule(cr, mode == CGPathDrawingMode::kCGPathEOFill ? CAIRO_FILL_RULE_EVEN_ODD
                                                                          : CAIRO_FILL_RULE_WINDING);
        c->useFill();
        if (stroke)
            cairo_fill_preserve(cr);
        else
            cairo_fill(cr);
    }
    if (stroke) {
        c->useStroke();
        cairo_stroke(cr);
    }
}

void CGContextFillPath(const CGContextRef& c) { CGContextDrawPath(c, CGPathDrawingMode::kCGPathFill); }
void CGContextEOFillPath(const CGContextRef& c) { CGContextDrawPath(c, CGPathDrawingMode::kCGPathEOFill); }
void CGContextStrokePath(const CGContextRef& c) { CGContextDrawPath(c, CGPathDrawingMode::kCGPathStroke); }

void CGContextStrokeRect(const CGContextRef& c, CGRect r) {
    if (!c || !c->drawable() || !finiteRect(r)) return;
    if (c->isRecording()) return c->record(StrokeRect{r});
    cairo_t* cr = c->cairoContext();
    cairo_new_path(cr);
    cairo_rectangle(cr, r.origin.x, r.origin.y, r.size.width, r.size.height);
    c->useStroke();
    cairo_stroke(cr);
}

void CGContextClearRect(const CGContextRef& c, CGRect r) {
    if (!c || !c->drawable() || !finiteRect(r)) return;
    if (c->isRecording()) return c->record(ClearRect{r});
    cairo_t* cr = c->cairoContext();
    cairo_save(cr);
    cairo_new_path(cr);
    cairo_rectangle(cr, r.origin.x, r.origin.y, r.size.width, r.size.height);
    cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
    cairo_fill(cr);
    cairo_restore(cr);
}

static void drawImage(const CGContextRef& c, CGRect rect, const CGImageRef& image, bool tiled) {
    if (!c || !image || !c->drawable() || !finiteRect(rect)) return;
    rect = CGRectStandardize(rect);
    if (rect.size.width == 0 || rect.size.height == 0 || image->width() == 0 || image->height() == 0) return;
    if (c->isRecording()) return c->record(DrawImage{rect, image, tiled});
    cairo_t* cr = c->cairoContext();
    cairo_save(cr);
    cairo_new_path(cr);
    cairo_pattern_t* pattern = cairo_pattern_create_for_surface(image->surface());
    cairo_matrix_t m = imagePlacement(rect, static_cast<double>(image->width()), static_cast<double>(image->height()));
    cairo_pattern_set_matrix(pattern, &m);
    if (tiled) {
        cairo_pattern_set_extend(pattern, CAIRO_EXTEND_REPEAT);
    } else {
        // Stretched pixels fade at the edges unless the edge pixels carry on; a PDF keeps the
        // image whole instead, and a viewer scales it without fading.
        if (c->bitmap()) cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
        cairo_rectangle(cr, rect.origin.x, rect.origin.y, rect.size.width, rect.size.height);
        cairo_clip(cr);
    }
    double alpha = c->state().alpha;
    if (image->alphaInfo() == kCGImageAlphaOnly) {
        // An alpha-only image paints the fill colour through its alpha.
        c->useFill();
        cairo_mask(cr, pattern);
    } else {
        cairo_set_source(cr, pattern);
        if (alpha < 1)
            cairo_paint_with_alpha(cr, alpha);
        else
            cairo_paint(cr);
    }
    cairo_pattern_destroy(pattern);
    cairo_restore(cr);
}

void CGContextDrawImage(const CGContextRef& c, CGRect rect, const CGImageRef& image) { drawImage(c, rect, image, false); }

void CGContextDrawTiledImage(const CGContextRef& c, CGRect rect, const CGImageRef& image) {
    drawImage(c, rect, image, true);
}

void CGContextSelectFont(const CGContextRef& c, const char* name, CGFloat size, CGTextEncoding) {
    if (!c || name == nullptr || !finite(size)) return;
    if (c->isRecording()) c->record(SelectFont{name, size});
    c->font.family = name;
    c->font.size = size;
}

void CGContextSetTextMatrix(const CGContextRef& c, CGAffineTransform t) {
    if (!c) return;
    if (c->isRecording()) c->record(SetTextMatrix{t});
    c->font.textMatrix = t;
}

CGAffineTransform CGContextGetTextMatrix(const CGContextRef& c) {
    return c ? c->font.textMatrix : CGAffineTransformIdentity;
}

void CGContextShowTextAtPoint(const CGContextRef& c, CGFloat x, CGFloat y, const char* string, std::size_t length) {
    if (c && string) c->showText(x, y, std::string_view(string, length));
}

CGContextRef CGBitmapContextCreate(void* data, std::size_t width, std::size_t height, std::size_t bitsPerComponent,
                                   std::size_t bytesPerRow, const CGColorSpaceRef& space, uint32_t bitmapInfo) {
    constexpr std::size_t kMaxSide = 32767;  // cairo's limit for image surfaces
    if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide || bitsPerComponent != 8) return nullptr;
    uint32_t alpha = bitmapInfo & kCGBitmapAlphaInfoMask;
    uint32_t order = bitmapInfo & kCGBitmapByteOrderMask;
    cairo_format_t format;
    std::size_t bitsPerPixel;
    if (alpha == kCGImageAlphaOnly) {
        format = CAIRO_FORMAT_A8;
        bitsPerPixel = 8;
    } else if (space && space->model() == CGColorSpaceModel::kCGColorSpaceModelRGB &&
               order == kCGBitmapByteOrder32Little &&
               (alpha == kCGImageAlphaPremultipliedFirst || alpha == kCGImageAlphaNoneSkipFirst)) {
        format = alpha == kCGImageAlphaPremultipliedFirst ? CAIRO_FORMAT_ARGB32 : CAIRO_FORMAT_RGB24;
        bitsPerPixel = 32;
    } else {
        return nullptr;
    }
    int w = static_cast<int>(width), h = static_cast<int>(height);
    int minimum = cairo_format_stride_for_width(format, w);
    if (minimum < 0) return nullptr;
    if (bytesPerRow == 0) bytesPerRow = static_cast<std::size_t>(minimum);
    // cairo reads rows at 4-byte boundaries; a narrower or unaligned row can't be drawn into.
    if (bytesPerRow < static_cast<std::size_t>(minimum) || bytesPerRow % 4 != 0 ||
        bytesPerRow > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        return nullptr;

    auto bitmap = std::make_unique<CGContext::Bitmap>();
    bitmap->width = width;
    bitmap->height = height;
    bitmap->bytesPerRow = bytesPerRow;
    bitmap->bitsPerPixel = bitsPerPixel;
    auto* memory = static_cast<unsigned char*>(data);
    if (memory == nullptr) {
        try {
            bitmap->ownedData.assign(bytesPerRow * height, 0);
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
        memory = bitmap->ownedData.data();
    }
    cairo_surface_t* surface = cairo_image_surface_create_for_data(memory, format, w, h, static_cast<int>(bytesPerRow));
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(surface);
        return nullptr;
    }
    cairo_t* cr = cairo_create(surface);
    cairo_surface_destroy(surface);
    // The platform's bitmap contexts put the origin at the bottom left.
    cairo_translate(cr, 0, static_cast<double>(height));
    cairo_scale(cr, 1, -1);
    auto context = std::make_shared<CGContext>(cr, static_cast<CGFloat>(height), std::move(bitmap));
    cairo_destroy(cr);
    return context;
}

CGImageRef CGBitmapContextCreateImage(const CGContextRef& c) {
    if (!c || !c->bitmap()) return nullptr;
    cairo_surface_t* target = cairo_get_target(c->cairoContext());
    cairo_surface_flush(target);
    cairo_format_t format = cairo_image_surface_get_format(target);
    int w = cairo_image_surface_get_width(target), h = cairo_image_surface_get_height(target);
    cairo_surface_t* copy = cairo_image_surface_create(format, w, h);
    if (cairo_surface_status(copy) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(copy);
        return nullptr;
    }
    int inStride = cairo_image_surface_get_stride(target), outStride = cairo_image_surface_get_stride(copy);
    const unsigned char* in = cairo_image_surface_get_data(target);
    unsigned char* out = cairo_image_surface_get_data(copy);
    std::size_t rowBytes = static_cast<std::size_t>(cairo_format_stride_for_width(format, w));
    for (int y = 0; y < h; ++y) std::memcpy(out + y * outStride, in + y * inStride, rowBytes);
    cairo_surface_mark_dirty(copy);
    return std::make_shared<CGImage>(copy);
}

void* CGBitmapContextGetData(const CGContextRef& c) {
    if (!c || !c->bitmap()) return nullptr;
    cairo_surface_t* target = cairo_get_target(c->cairoContext());
    cairo_surface_flush(target);
    return cairo_image_surface_get_data(target);
}

std::size_t CGBitmapContextGetWidth(const CGContextRef& c) { return c && c->bitmap() ? c->bitmap()->width : 0; }
std::size_t CGBitmapContextGetHeight(const CGContextRef& c) { return c && c->bitmap() ? c->bitmap()->height : 0; }
std::size_t CGBitmapContextGetBytesPerRow(const CGContextRef& c) {
    return c && c->bitmap() ? c->bitmap()->bytesPerRow : 0;
}
std::size_t CGBitmapContextGetBitsPerPixel(const CGContextRef& c) {
    return c && c->bitmap() ? c->bitmap()->bitsPerPixel : 0;
}

}  // namespace platform
