#include "server/http/QueryString.h"

#include <algorithm>

namespace qlm::ingest {

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isUnreserved(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

}  // namespace

std::optional<std::string> percentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        if (i + 2 >= text.size()) return std::nullopt;
        const int high = hexValue(text[i + 1]);
        const int low = hexValue(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        out += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return out;
}

std::string percentEncode(std::string_view text) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (unsigned char c : text) {
        if (isUnreserved(c)) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kDigits[c >> 4];
            out += kDigits[c & 15];
        }
    }
    return out;
}

std::optional<QueryParameters> parseQuery(std::string_view rawQuery, QueryForm form) {
    std::string spaced;
    if (form == QueryForm::htmlForm) {
        spaced = rawQuery;
        std::replace(spaced.begin(), spaced.end(), '+', ' ');
        rawQuery = spaced;
    }
    QueryParameters parameters;
    while (!rawQuery.empty()) {
        const std::size_t amp = rawQuery.find('&');
        const std::string_view piece = rawQuery.substr(0, amp);
        rawQuery = amp == std::string_view::npos ? std::string_view() : rawQuery.substr(amp + 1);
        if (piece.empty()) continue;
        const std::size_t eq = piece.find('=');
        auto key = percentDecode(piece.substr(0, eq));
        auto value = percentDecode(eq == std::string_view::npos ? std::string_view() : piece.substr(eq + 1));
        if (!key || !value) return std::nullopt;
        parameters.emplace_back(std::move(*key), std::move(*value));
    }
    return parameters;
}

}  // namespace qlm::ingest
