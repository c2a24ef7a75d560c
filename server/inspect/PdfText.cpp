#include "server/inspect/PdfText.h"

#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-page.h>

#include <climits>
#include <memory>

namespace qlm::ingest {

namespace {

// poppler reports damaged documents on stderr by default; the caller reports them its own way.
void quiet(const std::string&, void*) {}

}  // namespace

std::optional<std::vector<std::string>> pdfPageTexts(std::string_view pdf) {
    static const bool silenced = (poppler::set_debug_error_function(quiet, nullptr), true);
    (void)silenced;
    if (pdf.empty() || pdf.size() > static_cast<std::size_t>(INT_MAX)) return std::nullopt;
    // load_from_raw_data reads the bytes in place; they outlive the document here.
    std::unique_ptr<poppler::document> document(
        poppler::document::load_from_raw_data(pdf.data(), static_cast<int>(pdf.size())));
    if (!document || document->is_locked()) return std::nullopt;
    std::vector<std::string> texts;
    for (int i = 0; i < document->pages(); ++i) {
        std::unique_ptr<poppler::page> page(document->create_page(i));
        if (!page) return std::nullopt;
        const poppler::byte_array utf8 = page->text().to_utf8();
        texts.emplace_back(utf8.begin(), utf8.end());
    }
    return texts;
}

}  // namespace qlm::ingest
