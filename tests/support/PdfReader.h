#pragma once
// Reading back a PDF the stand-in wrote: page size, extracted text and a raster of a page.
// A PdfDocument is used from one thread at a time.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace poppler {
class document;
}

namespace qlm_test {

struct RasterPage {
    int width = 0, height = 0;
    std::vector<uint32_t> argb;  // row-major, 0xAARRGGBB; poppler renders opaque on white

    // Pixel at (x, y), origin top-left; 0 outside the page.
    uint32_t at(int x, int y) const;
    // True when the pixel's r, g, b are each within `tolerance` of the given colour.
    bool near(int x, int y, uint8_t r, uint8_t g, uint8_t b, int tolerance = 24) const;
};

struct PdfDocument {
    // nullopt if poppler can't read the bytes.
    static std::optional<PdfDocument> load(std::string_view bytes);

    int pageCount() const;
    double pageWidth(int page = 0) const;   // points
    double pageHeight(int page = 0) const;  // points
    std::string text(int page = 0) const;   // extracted text (UTF-8); empty for a missing page
    RasterPage render(int page = 0, double dpi = 72) const;  // 72 dpi = one pixel per point

    // poppler reads the bytes in place, so they live as long as the document.
    std::shared_ptr<const std::string> bytes;
    std::shared_ptr<poppler::document> document;
};

}  // namespace qlm_test
