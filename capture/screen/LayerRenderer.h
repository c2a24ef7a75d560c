#pragma once
// Paints one layer into a CGContext from its properties, in a fixed order: position, scroll
// offset, transform, mask or bounds clip, corner clip, background, contents image, own drawing,
// sublayers, border. Shadows, opacity and filters are not drawn. Own drawing stays vector drawing;
// only a contents image and a mask are bitmaps.
//
// Main thread, during a capture. Every call leaves the context's graphics state as it found it.
#include <memory>

#include "platform/coregraphics/CGContext.h"
#include "platform/coregraphics/CGImage.h"
#include "platform/quartzcore/CALayer.h"
#include "platform/uikit/UIImage.h"

namespace quillmere {

class RecursiveViewProcessor;

class LayerRenderer {
public:
    // Sublayers go back to `processor`, which decides which of them are drawn; it must outlive
    // this renderer.
    explicit LayerRenderer(const RecursiveViewProcessor& processor) : processor_(processor) {}

    // The layer and its subtree, placed by its frame in the context's current coordinates.
    void drawLayer(platform::CALayer& layer, const platform::CGContextRef& context) const;
    // Contents image, own drawing, sublayers; in the layer's bounds coordinates.
    void drawLayerContent(platform::CALayer& layer, const platform::CGContextRef& context) const;
    // The contents, if they are an image, stretched over the frame's size.
    static void drawContentsImage(const platform::CALayer& layer, const platform::CGContextRef& context);
    // A nine-part stretching image when the layer resizes its contents around a contentsCenter
    // other than the whole image; null otherwise.
    static std::shared_ptr<platform::UIImage> makeResizableImage(const platform::CGImageRef& image,
                                                                 const platform::CALayer& layer);
    // The alpha of the layer's mask rendered at one pixel per point of its bounds; null without a
    // mask or when no bitmap of that size can be made.
    static platform::CGImageRef makeMaskImage(const platform::CALayer& layer);

private:
    const RecursiveViewProcessor& processor_;
};

}  // namespace quillmere
