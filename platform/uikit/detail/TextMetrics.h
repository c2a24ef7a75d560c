#pragma once
// Measuring text the way CGContextShowTextAtPoint draws it (cairo's toy font API with the one
// face the stand-in has), on a scratch context of the calling thread. Any thread.
#include <string>

#include "platform/uikit/UIFont.h"

namespace platform::detail {

struct FontMetrics {
    double ascent = 0;
    double descent = 0;
    double lineHeight = 0;  // baseline to baseline
};

FontMetrics fontMetrics(const UIFont& font);
// Advance width of one line, drawn as CGContextShowTextAtPoint draws it (invalid UTF-8 as U+FFFD).
double textAdvance(const UIFont& font, const std::string& line);

}  // namespace platform::detail
