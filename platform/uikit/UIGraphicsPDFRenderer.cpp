#include "platform/uikit/UIGraphicsPDFRenderer.h"

#include <cairo-pdf.h>
#include <cairo.h>

#include <ctime>
#include <mutex>

#include "platform/uikit/UIGraphics.h"

namespace platform {

namespace {

// The recorded pages of one document, until the document is made from them.
struct Recording {
    std::vector<UIGraphicsPDFRendererContext::Page> pages;
    CGSize defaultSize;
    std::string creationDate;  // taken when the drawing was done, so the bytes don't depend on when they are made
};

cairo_status_t appendBytes(void* closure, const unsigned char* data, unsigned int length) {
    auto bytes = static_cast<std::vector<uint8_t>*>(closure);
    bytes->insert(bytes->end(), data, data + length);
    return CAIRO_STATUS_SUCCESS;
}

// cairo's PDF writer attaches snapshots to the images a document draws, on the images themselves;
// two documents made at once from the same image would race on them. Documents are made one at a
// time; drawing (recording) never takes this lock, so the main thread doesn't wait for it.
std::mutex documentMutex;

std::vector<uint8_t> makeDocument(const Recording& recording) {
    std::lock_guard lock(documentMutex);
    std::vector<uint8_t> bytes;
    CGSize first = recording.pages.empty() ? recording.defaultSize : recording.pages.front().size;
    cairo_surface_t* pdf = cairo_pdf_surface_create_for_stream(appendBytes, &bytes, first.width, first.height);
    cairo_pdf_surface_set_metadata(pdf, CAIRO_PDF_METADATA_CREATE_DATE, recording.creationDate.c_str());
    for (const auto& page : recording.pages) {
        cairo_pdf_surface_set_size(pdf, page.size.width, page.size.height);
        cairo_t* cr = cairo_create(pdf);
        auto context = std::make_shared<CGContext>(cr, page.size.height);
        cairo_destroy(cr);
        CGContext::replay(*page.drawing, context);
        context->finishMasks();
        cairo_show_page(context->cairoContext());
    }
    cairo_surface_finish(pdf);
    bool failed = cairo_surface_status(pdf) != CAIRO_STATUS_SUCCESS;
    cairo_surface_destroy(pdf);
    if (failed) bytes.clear();
    return bytes;
}

std::string isoDateNow() {
    std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

}  // namespace

UIGraphicsPDFRendererContext::UIGraphicsPDFRendererContext(CGRect bounds)
    : bounds_(CGRectStandardize(bounds)), pageBounds_(bounds_) {
    // Before the first page, drawing goes to a recording that is never kept.
    context_ = CGContext::makeRecording(CGRectZero);
}

UIGraphicsPDFRendererContext::~UIGraphicsPDFRendererContext() = default;

void UIGraphicsPDFRendererContext::beginPage() { beginPageWithBounds(bounds_); }

void UIGraphicsPDFRendererContext::beginPageWithBounds(CGRect bounds) {
    finishPage();
    pageBounds_ = CGRectStandardize(bounds);
    auto previous = context_;
    context_ = CGContext::makeRecording(CGRectMake(0, 0, pageBounds_.size.width, pageBounds_.size.height));
    pageOpen_ = true;
    // The new page's context takes the old one's place as UIKit's current context.
    if (UIGraphicsGetCurrentContext() == previous) {
        UIGraphicsPopContext();
        UIGraphicsPushContext(context_);
    }
}

void UIGraphicsPDFRendererContext::finishPage() {
    if (!pageOpen_) return;
    pageOpen_ = false;
    // The context may outlive the page in a caller's hands, while another thread makes the
    // document from its list; taking the list ends the recording, so nothing reaches it after.
    pages_.push_back({context_->takeDisplayList(), pageBounds_.size});
}

std::vector<UIGraphicsPDFRendererContext::Page> UIGraphicsPDFRendererContext::takePages() {
    finishPage();
    return std::move(pages_);
}

UIGraphicsPDFRenderer::UIGraphicsPDFRenderer() : bounds_(CGRectMake(0, 0, 612, 792)) {}

UIGraphicsPDFRenderer::UIGraphicsPDFRenderer(CGRect bounds) : bounds_(CGRectStandardize(bounds)) {}

std::shared_ptr<NSData> UIGraphicsPDFRenderer::PDFDataWithActions(
    const std::function<void(UIGraphicsPDFRendererContext&)>& actions) {
    auto recording = std::make_shared<Recording>();
    recording->defaultSize = bounds_.size;
    recording->creationDate = isoDateNow();
    {
        auto context = std::make_shared<UIGraphicsPDFRendererContext>(bounds_);
        // The page's context is UIKit's current one while the actions run; a new page swaps it.
        struct CurrentContext {
            explicit CurrentContext(const CGContextRef& c) { UIGraphicsPushContext(c); }
            ~CurrentContext() { UIGraphicsPopContext(); }
        } current(context->CGContext());
        if (actions) actions(*context);
        recording->pages = context->takePages();
    }
    return NSData::dataWithProducer([recording] {
        auto bytes = makeDocument(*recording);
        // The drawing isn't needed any more (it holds the images it drew); the data keeps its bytes.
        recording->pages.clear();
        return bytes;
    });
}

}  // namespace platform
