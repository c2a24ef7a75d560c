#include "platform/uikit/detail/TextMetrics.h"

#include <cairo.h>

#include <cmath>
#include <map>
#include <utility>

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
    cairo_text_extents(cr, line.c_str(), &extents);
    return extents.x_advance;
}

std::string validUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    for (std::size_t i = 0; i < text.size();) {
        const unsigned char lead = byte(i);
        if (lead < 0x80) {
            if (lead != 0) out.push_back(static_cast<char>(lead));
            ++i;
            continue;
        }
        std::size_t length = 0;
        char32_t min = 0;
        if ((lead & 0xE0) == 0xC0) {
            length = 2, min = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3, min = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4, min = 0x10000;
        }
        bool ok = length != 0 && i + length <= text.size();
        char32_t cp = length == 0 ? 0 : lead & (0x7F >> length);
        for (std::size_t k = 1; ok && k < length; ++k) {
            ok = (byte(i + k) & 0xC0) == 0x80;
            cp = (cp << 6) | (byte(i + k) & 0x3F);
        }
        ok = ok && cp >= min && cp <= 0x10FFFF && !(cp >= 0xD800 && cp <= 0xDFFF);
        if (ok) {
            out.append(text.substr(i, length));
            i += length;
        } else {
            out.append("\xEF\xBF\xBD");
            ++i;
        }
    }
    return out;
}

}  // namespace platform::detail
