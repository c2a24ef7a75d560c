#pragma once
// The current graphics context of UIKit drawing: a per-thread stack. UIKit pushes a context while
// a view draws, and UIGraphicsPDFRenderer pushes its page's context while its actions run.
#include "platform/coregraphics/CGContext.h"

namespace platform {

// nullptr when nothing is pushed on this thread.
CGContextRef UIGraphicsGetCurrentContext();
void UIGraphicsPushContext(const CGContextRef& context);
// Does nothing if the stack is empty.
void UIGraphicsPopContext();

}  // namespace platform
