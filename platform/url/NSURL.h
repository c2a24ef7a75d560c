#pragma once
// URLs. A URL keeps its text as given; its parts are read with libcurl's URL parser. Immutable, so
// any thread may use one.
#include <memory>
#include <optional>
#include <string>

#include "platform/foundation/NSObject.h"

namespace platform {

class NSURL : public NSObject {
    PLATFORM_OBJC_CLASS(NSURL, NSObject)
public:
    // nullptr unless `text` is a valid URL (RFC 3986 characters only, every '%' followed by two hex
    // digits; an absolute hierarchical URL must also parse). Nothing is percent-encoded for the
    // caller.
    static std::shared_ptr<NSURL> URLWithString(const std::string& text);
    // `text` resolved against `baseURL` (a null base: as the one-argument form). nullptr when the
    // text is invalid or does not resolve.
    static std::shared_ptr<NSURL> URLWithString(const std::string& text,
                                                const std::shared_ptr<NSURL>& baseURL);

    // The URL as text; for a URL made against a base, the resolved absolute text.
    const std::string& absoluteString() const { return absolute_; }
    // The text the URL was made from.
    const std::string& relativeString() const { return relative_; }
    const std::shared_ptr<NSURL>& baseURL() const { return base_; }

    // The parts; nullopt where the URL has none. The scheme is lower case; path() is
    // percent-decoded, without a trailing slash except for the root "/".
    const std::optional<std::string>& scheme() const { return scheme_; }
    const std::optional<std::string>& host() const { return host_; }
    const std::optional<long>& port() const { return port_; }
    const std::optional<std::string>& user() const { return user_; }
    const std::optional<std::string>& password() const { return password_; }
    std::optional<std::string> path() const;
    const std::optional<std::string>& query() const { return query_; }
    const std::optional<std::string>& fragment() const { return fragment_; }

    bool isEqual(const NSObject* other) const override;
    std::size_t hash() const override;
    std::string description() const override { return absolute_; }

    NSURL() = default;

private:
    // Fills the parts from the absolute text; false when curl does not accept it.
    bool parseParts(const std::string& text);

    // Set while the URL is made, before it is shared; immutable after.
    std::string absolute_;
    std::string relative_;
    std::shared_ptr<NSURL> base_;
    std::optional<std::string> scheme_;
    std::optional<std::string> host_;
    std::optional<long> port_;
    std::optional<std::string> user_;
    std::optional<std::string> password_;
    std::optional<std::string> rawPath_;  // percent-encoded, as in the text
    std::optional<std::string> query_;
    std::optional<std::string> fragment_;
};

}  // namespace platform
