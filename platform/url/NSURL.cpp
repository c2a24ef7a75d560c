#include "platform/url/NSURL.h"

#include <curl/curl.h>

#include <cctype>
#include <functional>
#include <memory>

#include "platform/url/detail/CaseInsensitive.h"

namespace platform {
namespace {

struct CurlUrlDeleter {
    void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
using CurlUrl = std::unique_ptr<CURLU, CurlUrlDeleter>;

constexpr unsigned kParseFlags = CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS;

bool isHex(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

bool isAllowedCharacter(char c) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0 && static_cast<unsigned char>(c) < 0x80) return true;
    switch (c) {
        case '-':
        case '.':
        case '_':
        case '~':  // unreserved
        case ':':
        case '/':
        case '?':
        case '#':
        case '[':
        case ']':
        case '@':  // gen-delims
        case '!':
        case '$':
        case '&':
        case '\'':
        case '(':
        case ')':
        case '*':
        case '+':  // sub-delims
        case ',':
        case ';':
        case '=':
            return true;
        default:
            return false;
    }
}

// The length of a leading "scheme:" (without the colon), or 0 when the text has none.
std::size_t schemeLength(const std::string& text) {
    if (text.empty() || std::isalpha(static_cast<unsigned char>(text[0])) == 0) return 0;
    for (std::size_t i = 1; i < text.size(); ++i) {
        const char c = text[i];
        if (c == ':') return i;
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '+' && c != '-' && c != '.') return 0;
    }
    return 0;
}

// Characters and escapes as RFC 3986 allows them; brackets only inside an authority, where an IP
// literal lives.
bool hasValidCharacters(const std::string& text) {
    std::size_t authorityBegin = std::string::npos;
    std::size_t authorityEnd = std::string::npos;
    if (auto marker = text.find("//"); marker != std::string::npos) {
        const std::size_t scheme = schemeLength(text);
        if ((scheme > 0 && marker == scheme + 1) || marker == 0) {
            authorityBegin = marker + 2;
            authorityEnd = text.find_first_of("/?#", authorityBegin);
            if (authorityEnd == std::string::npos) authorityEnd = text.size();
        }
    }
    bool seenFragment = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (!isAllowedCharacter(c) && c != '%') return false;
        if (c == '%' && (i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2]))) return false;
        if (c == '#') {
            if (seenFragment) return false;
            seenFragment = true;
        }
        if ((c == '[' || c == ']') &&
            (authorityBegin == std::string::npos || i < authorityBegin || i >= authorityEnd)) {
            return false;
        }
    }
    return true;
}

std::optional<std::string> getPart(CURLU* handle, CURLUPart part, unsigned flags = 0) {
    char* value = nullptr;
    if (curl_url_get(handle, part, &value, flags) != CURLUE_OK || value == nullptr) return std::nullopt;
    std::string out(value);
    curl_free(value);
    return out;
}

std::string percentDecoded(const std::string& text) {
    int length = 0;
    char* decoded = curl_easy_unescape(nullptr, text.c_str(), static_cast<int>(text.size()), &length);
    if (decoded == nullptr) return text;
    std::string out(decoded, static_cast<std::size_t>(length));
    curl_free(decoded);
    return out;
}

// Where the path of a hierarchical URL begins in its text, past the scheme and the authority.
std::size_t pathStart(const std::string& text, std::size_t scheme) {
    std::size_t at = scheme == 0 ? 0 : scheme + 1;
    if (text.compare(at, 2, "//") == 0) {
        at = text.find_first_of("/?#", at + 2);
        if (at == std::string::npos) at = text.size();
    }
    return at;
}

}  // namespace

bool NSURL::parseParts(const std::string& text) {
    const std::size_t schemeLen = schemeLength(text);
    const std::size_t afterScheme = schemeLen == 0 ? 0 : schemeLen + 1;
    if (schemeLen > 0 && text.compare(afterScheme, 1, "/") == 0) {
        CurlUrl handle(curl_url());
        if (!handle || curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), kParseFlags) != CURLUE_OK)
            return false;
        scheme_ = getPart(handle.get(), CURLUPART_SCHEME);
        host_ = getPart(handle.get(), CURLUPART_HOST);
        if (host_ && host_->size() >= 2 && host_->front() == '[' && host_->back() == ']') {
            host_ = host_->substr(1, host_->size() - 2);
        }
        if (auto textPort = getPart(handle.get(), CURLUPART_PORT)) port_ = std::stol(*textPort);
        user_ = getPart(handle.get(), CURLUPART_USER);
        password_ = getPart(handle.get(), CURLUPART_PASSWORD);
        query_ = getPart(handle.get(), CURLUPART_QUERY);
        fragment_ = getPart(handle.get(), CURLUPART_FRAGMENT);
        // curl reports "/" for a URL written without a path; the text is the judge.
        const std::size_t start = pathStart(text, schemeLen);
        rawPath_ =
            start < text.size() && text[start] == '/' ? getPart(handle.get(), CURLUPART_PATH) : std::string();
        return true;
    }
    // An opaque URL ("mailto:a@b") or a relative reference without a base: split by hand, since
    // curl parses only URLs with an authority.
    if (schemeLen > 0) scheme_ = detail::asciiLowercased(std::string_view(text).substr(0, schemeLen));
    std::string rest = text.substr(afterScheme);
    if (auto hash = rest.find('#'); hash != std::string::npos) {
        fragment_ = rest.substr(hash + 1);
        rest.resize(hash);
    }
    if (auto question = rest.find('?'); question != std::string::npos) {
        query_ = rest.substr(question + 1);
        rest.resize(question);
    }
    if (schemeLen == 0 && rest.starts_with("//")) {
        const std::size_t end = rest.find('/', 2);
        host_ = rest.substr(2, end == std::string::npos ? std::string::npos : end - 2);
        rest = end == std::string::npos ? std::string() : rest.substr(end);
    }
    rawPath_ = rest;
    return true;
}

std::shared_ptr<NSURL> NSURL::URLWithString(const std::string& text) {
    if (text.empty() || !hasValidCharacters(text)) return nullptr;
    auto url = std::make_shared<NSURL>();
    if (!url->parseParts(text)) return nullptr;
    url->absolute_ = text;
    url->relative_ = text;
    return url;
}

std::shared_ptr<NSURL> NSURL::URLWithString(const std::string& text, const std::shared_ptr<NSURL>& baseURL) {
    if (!baseURL) return URLWithString(text);
    if (!hasValidCharacters(text)) return nullptr;
    CurlUrl handle(curl_url());
    if (!handle || curl_url_set(handle.get(), CURLUPART_URL, baseURL->absoluteString().c_str(),
                                kParseFlags) != CURLUE_OK) {
        return nullptr;
    }
    // Resolving normalises dot segments, as RFC 3986 section 5.2 does.
    if (curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
        return nullptr;
    auto resolved = getPart(handle.get(), CURLUPART_URL);
    if (!resolved) return nullptr;
    auto url = URLWithString(*resolved);
    if (!url) return nullptr;
    url->relative_ = text;
    url->base_ = baseURL;
    return url;
}

std::optional<std::string> NSURL::path() const {
    if (!rawPath_) return std::nullopt;
    std::string decoded = percentDecoded(*rawPath_);
    if (decoded.size() > 1 && decoded.back() == '/') decoded.pop_back();
    return decoded;
}

bool NSURL::isEqual(const NSObject* other) const {
    auto url = dynamic_cast<const NSURL*>(other);
    return url != nullptr && url->absolute_ == absolute_;
}

std::size_t NSURL::hash() const {
    return std::hash<std::string>{}(absolute_);
}

}  // namespace platform
