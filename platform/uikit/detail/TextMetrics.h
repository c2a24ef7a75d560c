#pragma once
// Measuring text the way CGContextShowTextAtPoint draws it (cairo's toy font API with the one
// face the stand-in has), on a scratch context of the calling thread. Any thread.
#include <string>
#include <string_view>

#include "platform/uikit/UIFont.h"

namespace platform::detail {

struct FontMetrics {
    double ascent = 0;
    double descent = 0;
    double lineHeight = 0;  // baseline to baseline
};

FontMetrics fontMetrics(const UIFont& font);
// Advance width of one line of valid UTF-8 (see validUtf8).
double textAdvance(const UIFont& font, const std::string& line);
// `text` with invalid sequences replaced by U+FFFD and NUL bytes dropped: cairo refuses anything
// else, and a refusal would leave the measuring context unusable.
std::string validUtf8(std::string_view text);

}  // namespace platform::detail
