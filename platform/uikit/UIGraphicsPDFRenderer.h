#pragma once
// Renders drawing into PDF documents. Main thread for the drawing, like UIKit.
//
// The actions only record what is drawn (a list of drawing calls, cheap to make); the document's
// bytes are made from that record, with cairo, when the returned data is first read, on the
// reading thread, once. So a caller may hand the data to
// another thread and keep this one free: the bytes are the same whichever thread reads them and
// whenever it does, and the images that the drawing used are kept until then.
#include <functional>
#include <memory>
#include <vector>

#include "platform/coregraphics/CGContext.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSObject.h"

namespace platform {

class UIGraphicsPDFRendererContext : public NSObject {
    PLATFORM_OBJC_CLASS(UIGraphicsPDFRendererContext, NSObject)
public:
    // Stand-in only: the renderer makes its context.
    explicit UIGraphicsPDFRendererContext(CGRect bounds);
    ~UIGraphicsPDFRendererContext() override;

    // Starts a new page of the renderer's bounds; drawing before the first page is lost.
    void beginPage();
    void beginPageWithBounds(CGRect bounds);
    // The page's context: origin at the page's top left, y downward, one unit a point. A new page
    // has a new context.
    const CGContextRef& CGContext() const { return context_; }
    CGRect pdfContextBounds() const { return pageBounds_; }

    // Stand-in only: ends the last page and gives up what the pages recorded.
    struct Page {
        std::shared_ptr<const CGContext::DisplayList> drawing;
        CGSize size;
    };
    std::vector<Page> takePages();

private:
    void finishPage();

    const CGRect bounds_;
    CGRect pageBounds_;
    CGContextRef context_;
    bool pageOpen_ = false;
    std::vector<Page> pages_;
};

class UIGraphicsPDFRenderer : public NSObject {
    PLATFORM_OBJC_CLASS(UIGraphicsPDFRenderer, NSObject)
public:
    // The platform's default page: US Letter, 612 by 792 points.
    UIGraphicsPDFRenderer();
    explicit UIGraphicsPDFRenderer(CGRect bounds);

    CGRect bounds() const { return bounds_; }
    // Runs `actions` with a context whose CGContext is also UIKit's current context meanwhile, and
    // gives the document. A PDF has at least one page: if the actions began none, the stand-in
    // gives one blank page of the renderer's bounds.
    std::shared_ptr<NSData> PDFDataWithActions(const std::function<void(UIGraphicsPDFRendererContext&)>& actions);

private:
    CGRect bounds_;
};

}  // namespace platform
