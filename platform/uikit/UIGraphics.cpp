#include "platform/uikit/UIGraphics.h"

#include <vector>

namespace platform {

namespace {
thread_local std::vector<CGContextRef> contextStack;  // this thread's own
}

CGContextRef UIGraphicsGetCurrentContext() { return contextStack.empty() ? nullptr : contextStack.back(); }

void UIGraphicsPushContext(const CGContextRef& context) { contextStack.push_back(context); }

void UIGraphicsPopContext() {
    if (!contextStack.empty()) contextStack.pop_back();
}

}  // namespace platform
