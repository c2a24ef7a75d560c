#include "platform/uikit/detail/TextMetrics.h"

#include <cairo.h>

#include <cmath>
#include <map>
#include <utility>

#include "platform/coregraphics/detail/CairoText.h"

namespace platform::detail {

namespace {

// One per thread: cairo contexts are not shared between threads.
class ScratchContext {
public:
    ScratchContext()
        : surface_(cairo_image_surface_create(CAIRO_FORMAT_A8, 1, 1)), cr_(cairo_create(surface_)) {}
    ~ScratchContext() {
        cairo_destroy(cr_);
        cairo_surface_destroy(surface_);
    }
    ScratchContext(const ScratchContext&) = delete;
    ScratchContext& operator=(const ScratchContext&) = delete;

    // Set up for `font`; null if the font can't be measured.
    cairo_t* with(const UIFont& font) {
        const double size = font.pointSize();
        if (!(size > 0) || !std::isfinite(size) || cairo_status(cr_) != CAIRO_STATUS_SUCCESS) return nullptr;
        cairo_select_font_face(cr_, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                               font.isBold() ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(cr_, size);
        return cr_;
    }

private:
    cairo_surface_t* const surface_;
    cairo_t* const cr_;
};

cairo_t* scratchFor(const UIFont& font) {
    thread_local ScratchContext context;
    return context.with(font);
}

}  // namespace

FontMetrics fontMetrics(const UIFont& font) {
    // Every label asks at every capture, and a screen has few fonts: remember them per thread.
    thread_local std::map<std::pair<double, bool>, FontMetrics> known;
    const auto key = std::make_pair(font.pointSize(), font.isBold());
    if (auto it = known.find(key); it != known.end()) return it->second;
    cairo_t* cr = scratchFor(font);
    if (cr == nullptr) return {};
    cairo_font_extents_t extents{};
    cairo_font_extents(cr, &extents);
    FontMetrics metrics{extents.ascent, extents.descent, extents.height};
    if (known.size() < 256) known.emplace(key, metrics);
    return metrics;
}

double textAdvance(const UIFont& font, const std::string& line) {
    cairo_t* cr = scratchFor(font);
    if (cr == nullptr) return 0;
    cairo_text_extents_t extents{};
    cairo_text_extents(cr, validUtf8(line).c_str(), &extents);
    return extents.x_advance;
}

}  // namespace platform::detail
