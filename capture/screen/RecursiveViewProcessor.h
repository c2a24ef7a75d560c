#pragma once
// Draws view trees into a PDF page by walking their layers, and decides which views the recording
// may show. Redaction is leaving out: a view that must not be recorded is never visited, nor is
// anything below it, so nothing of it reaches the page and the parent shows through.
//
// Main thread for everything that reads views. The tags are fixed at construction.
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "capture/screen/LayerRenderer.h"
#include "capture/screen/ViewProcessor.h"
#include "platform/coregraphics/CGContext.h"
#include "platform/quartzcore/CALayer.h"
#include "platform/uikit/UIView.h"

namespace quillmere {

class RecursiveViewProcessor final : public ViewProcessor {
public:
    // Tags are compared whole and case-sensitively, canonically equivalent texts counting as equal:
    // the tags are normalised here, once.
    explicit RecursiveViewProcessor(std::set<std::string> redactionTags);
    // The layer renderer refers back to this object.
    RecursiveViewProcessor(const RecursiveViewProcessor&) = delete;
    RecursiveViewProcessor& operator=(const RecursiveViewProcessor&) = delete;

    std::shared_ptr<platform::NSData> renderViews(
        const std::vector<std::shared_ptr<platform::UIView>>& views) const override;

    // False for a view to leave out with its whole subtree: hidden, the system keyboard's host, a
    // redaction tag as its identifier, or a secure text field that holds text or is being edited.
    bool shouldDrawView(const std::shared_ptr<platform::UIView>& view) const;

    // Draws the sublayers that back views the recording may show, lowest zPosition first; layers
    // with no view behind them are passed over with everything below them.
    void drawSublayers(const platform::CALayer& layer, const platform::CGContextRef& context) const;

    // In Normalization Form C.
    const std::set<std::string>& redactionTags() const { return redactionTags_; }

private:
    bool isRedactionTag(const std::string& identifier) const;

    const std::set<std::string> redactionTags_;
    const LayerRenderer renderer_{*this};
};

}  // namespace quillmere
