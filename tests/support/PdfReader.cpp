#include "tests/support/PdfReader.h"

#include <poppler-document.h>
#include <poppler-image.h>
#include <poppler-page-renderer.h>
#include <poppler-page.h>

#include <cstdlib>
#include <cstring>

namespace qlm_test {

uint32_t RasterPage::at(int x, int y) const {
    if (x < 0 || y < 0 || x >= width || y >= height) return 0;
    return argb[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)];
}

bool RasterPage::near(int x, int y, uint8_t r, uint8_t g, uint8_t b, int tolerance) const {
    if (x < 0 || y < 0 || x >= width || y >= height) return false;
    const uint32_t p = at(x, y);
    const auto close = [tolerance](uint32_t channel, uint8_t want) {
        return std::abs(static_cast<int>(channel & 0xffu) - static_cast<int>(want)) <= tolerance;
    };
    return close(p >> 16, r) && close(p >> 8, g) && close(p, b);
}

std::optional<PdfDocument> PdfDocument::load(std::string_view bytes) {
    PdfDocument doc;
    doc.bytes = std::make_shared<const std::string>(bytes);
    poppler::document* raw =
        poppler::document::load_from_raw_data(doc.bytes->data(), static_cast<int>(doc.bytes->size()));
    if (raw == nullptr) return std::nullopt;
    doc.document.reset(raw);
    if (doc.document->is_locked() || doc.document->pages() < 1) return std::nullopt;
    return doc;
}

int PdfDocument::pageCount() const {
    return document ? document->pages() : 0;
}

namespace {
std::unique_ptr<poppler::page> openPage(const std::shared_ptr<poppler::document>& document, int index) {
    if (!document || index < 0 || index >= document->pages()) return nullptr;
    return std::unique_ptr<poppler::page>(document->create_page(index));
}
}  // namespace

double PdfDocument::pageWidth(int page) const {
    auto p = openPage(document, page);
    return p ? p->page_rect().width() : 0;
}

double PdfDocument::pageHeight(int page) const {
    auto p = openPage(document, page);
    return p ? p->page_rect().height() : 0;
}

std::string PdfDocument::text(int page) const {
    auto p = openPage(document, page);
    if (!p) return {};
    const poppler::byte_array utf8 = p->text().to_utf8();
    return std::string(utf8.begin(), utf8.end());
}

RasterPage PdfDocument::render(int page, double dpi) const {
    RasterPage out;
    auto p = openPage(document, page);
    if (!p) return out;
    poppler::page_renderer renderer;
    renderer.set_render_hint(poppler::page_renderer::antialiasing, true);
    renderer.set_render_hint(poppler::page_renderer::text_antialiasing, true);
    renderer.set_image_format(poppler::image::format_argb32);
    const poppler::image image = renderer.render_page(p.get(), dpi, dpi);
    if (!image.is_valid() || image.format() != poppler::image::format_argb32) return out;
    out.width = image.width();
    out.height = image.height();
    out.argb.resize(static_cast<size_t>(out.width) * static_cast<size_t>(out.height));
    for (int y = 0; y < out.height; ++y) {
        // argb32 rows are native-endian 32-bit words, as the vector holds them.
        std::memcpy(&out.argb[static_cast<size_t>(y) * static_cast<size_t>(out.width)],
                    image.const_data() + static_cast<ptrdiff_t>(y) * image.bytes_per_row(),
                    static_cast<size_t>(out.width) * sizeof(uint32_t));
    }
    return out;
}

}  // namespace qlm_test
