#include "server/search/SearchWords.h"

#include <utf8proc.h>

#include <cstdlib>
#include <memory>
#include <unordered_set>

namespace qlm::ingest {

namespace {

bool isWordCharacter(utf8proc_int32_t codepoint) {
    switch (utf8proc_category(codepoint)) {
        case UTF8PROC_CATEGORY_LU:
        case UTF8PROC_CATEGORY_LL:
        case UTF8PROC_CATEGORY_LT:
        case UTF8PROC_CATEGORY_LM:
        case UTF8PROC_CATEGORY_LO:
        case UTF8PROC_CATEGORY_MN:
        case UTF8PROC_CATEGORY_MC:
        case UTF8PROC_CATEGORY_ME:
        case UTF8PROC_CATEGORY_ND:
        case UTF8PROC_CATEGORY_NL:
        case UTF8PROC_CATEGORY_NO:
            return true;
        default:
            return false;
    }
}

// Whatever is not UTF-8 becomes a space, so that the normalisation below accepts the rest.
std::string validUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    auto left = static_cast<utf8proc_ssize_t>(text.size());
    while (left > 0) {
        utf8proc_int32_t codepoint = 0;
        const utf8proc_ssize_t length = utf8proc_iterate(bytes, left, &codepoint);
        if (length <= 0 || codepoint == 0) {
            out += ' ';
            ++bytes;
            --left;
            continue;
        }
        out.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
        bytes += length;
        left -= length;
    }
    return out;
}

// NFKC with case folding, accents and default-ignorable characters (soft hyphens, joiners) removed.
std::string folded(const std::string& text) {
    utf8proc_uint8_t* mapped = nullptr;
    const auto options =
        static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPAT | UTF8PROC_COMPOSE |
                                       UTF8PROC_CASEFOLD | UTF8PROC_STRIPMARK | UTF8PROC_IGNORE);
    const utf8proc_ssize_t length =
        utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                     static_cast<utf8proc_ssize_t>(text.size()), &mapped, options);
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owned(mapped, &std::free);
    if (length < 0) return {};
    return std::string(reinterpret_cast<const char*>(mapped), static_cast<std::size_t>(length));
}

}  // namespace

std::vector<std::string> searchWords(std::string_view text, std::size_t limit) {
    std::vector<std::string> words;
    if (limit == 0) return words;
    const std::string normal = folded(validUtf8(text));
    std::unordered_set<std::string> seen;
    std::string word;
    const auto finish = [&] {
        if (!word.empty() && word.size() <= kMaxWordBytes && seen.insert(word).second) words.push_back(word);
        word.clear();
    };
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(normal.data());
    auto left = static_cast<utf8proc_ssize_t>(normal.size());
    while (left > 0 && words.size() < limit) {
        utf8proc_int32_t codepoint = 0;
        const utf8proc_ssize_t length = utf8proc_iterate(bytes, left, &codepoint);
        if (length <= 0) break;  // cannot happen after utf8proc_map; stop rather than loop
        if (isWordCharacter(codepoint)) {
            word.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
        } else {
            finish();
        }
        bytes += length;
        left -= length;
    }
    if (words.size() < limit) finish();
    return words;
}

}  // namespace qlm::ingest
