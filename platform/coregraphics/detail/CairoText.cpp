#include "platform/coregraphics/detail/CairoText.h"

namespace platform::detail {

std::string validUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    for (std::size_t i = 0; i < text.size();) {
        const unsigned char lead = byte(i);
        if (lead < 0x80) {
            if (lead != 0) out.push_back(static_cast<char>(lead));
            ++i;
            continue;
        }
        std::size_t length = 0;
        char32_t min = 0;
        if ((lead & 0xE0) == 0xC0) {
            length = 2, min = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3, min = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4, min = 0x10000;
        }
        bool ok = length != 0 && i + length <= text.size();
        char32_t cp = length == 0 ? 0 : lead & (0x7F >> length);
        for (std::size_t k = 1; ok && k < length; ++k) {
            ok = (byte(i + k) & 0xC0) == 0x80;
            cp = (cp << 6) | (byte(i + k) & 0x3F);
        }
        ok = ok && cp >= min && cp <= 0x10FFFF && !(cp >= 0xD800 && cp <= 0xDFFF);
        if (ok) {
            out.append(text.substr(i, length));
            i += length;
        } else {
            out.append("\xEF\xBF\xBD");
            ++i;
        }
    }
    return out;
}

}  // namespace platform::detail
