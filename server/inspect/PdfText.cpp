#include "server/inspect/PdfText.h"

#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-page.h>

#include <climits>
#include <cstdio>
#include <iterator>
#include <memory>
#include <mutex>

namespace qlm::ingest {

namespace {

// poppler reports damaged documents on stderr by default; the caller reports them its own way.
void quiet(const std::string&, void*) {}

// The smallest document with one page, its cross-reference table laid out to the byte.
std::string onePagePdf() {
    const char* const objects[] = {
        "<< /Type /Catalog /Pages 2 0 R >>",
        "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 10 10] /Contents 4 0 R >>",
        "<< /Length 0 >>\nstream\n\nendstream",
    };
    std::string pdf = "%PDF-1.4\n";
    std::vector<std::size_t> offsets;
    for (std::size_t i = 0; i < std::size(objects); ++i) {
        offsets.push_back(pdf.size());
        pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const std::size_t table = pdf.size();
    pdf += "xref\n0 " + std::to_string(offsets.size() + 1) + "\n0000000000 65535 f \n";
    for (const std::size_t offset : offsets) {
        char entry[24];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", offset);
        pdf += entry;
    }
    pdf += "trailer\n<< /Size " + std::to_string(offsets.size() + 1) + " /Root 1 0 R >>\nstartxref\n" +
           std::to_string(table) + "\n%%EOF\n";
    return pdf;
}

std::optional<std::vector<std::string>> readPageTexts(std::string_view pdf) {
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

// poppler makes its process-wide colour-management state (LittleCMS profiles and transforms) the
// first time any page is read, behind an unguarded check: two documents read at once for the
// first time both make it, and the heap is corrupted. One page read once, before any other, makes
// it while nothing else can; separate documents are safe in parallel after that.
void prepareOnce() {
    static std::once_flag prepared;
    std::call_once(prepared, [] {
        poppler::set_debug_error_function(quiet, nullptr);
        (void)readPageTexts(onePagePdf());
    });
}

}  // namespace

std::optional<std::vector<std::string>> pdfPageTexts(std::string_view pdf) {
    prepareOnce();
    return readPageTexts(pdf);
}

}  // namespace qlm::ingest
