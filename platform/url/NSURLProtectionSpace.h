#pragma once
// Where credentials apply: a host, port, protocol, realm and authentication method. Immutable once
// made.
#include <memory>
#include <optional>
#include <string>

#include "platform/foundation/NSObject.h"

namespace platform {

inline constexpr const char* NSURLProtectionSpaceHTTP = "http";
inline constexpr const char* NSURLProtectionSpaceHTTPS = "https";

inline constexpr const char* NSURLAuthenticationMethodDefault = "NSURLAuthenticationMethodDefault";
inline constexpr const char* NSURLAuthenticationMethodHTTPBasic = "NSURLAuthenticationMethodHTTPBasic";
inline constexpr const char* NSURLAuthenticationMethodHTTPDigest = "NSURLAuthenticationMethodHTTPDigest";
inline constexpr const char* NSURLAuthenticationMethodHTMLForm = "NSURLAuthenticationMethodHTMLForm";
inline constexpr const char* NSURLAuthenticationMethodNTLM = "NSURLAuthenticationMethodNTLM";
inline constexpr const char* NSURLAuthenticationMethodNegotiate = "NSURLAuthenticationMethodNegotiate";
inline constexpr const char* NSURLAuthenticationMethodClientCertificate =
    "NSURLAuthenticationMethodClientCertificate";
inline constexpr const char* NSURLAuthenticationMethodServerTrust = "NSURLAuthenticationMethodServerTrust";

class NSURLProtectionSpace : public NSObject {
    PLATFORM_OBJC_CLASS(NSURLProtectionSpace, NSObject)
public:
    NSURLProtectionSpace(std::string host, long port, std::optional<std::string> protocol,
                         std::optional<std::string> realm, std::string authenticationMethod)
        : host_(std::move(host)),
          port_(port),
          protocol_(std::move(protocol)),
          realm_(std::move(realm)),
          authenticationMethod_(std::move(authenticationMethod)) {}

    static std::shared_ptr<NSURLProtectionSpace> initWithHost(std::string host, long port,
                                                              std::optional<std::string> protocol,
                                                              std::optional<std::string> realm,
                                                              std::string authenticationMethod) {
        return std::make_shared<NSURLProtectionSpace>(std::move(host), port, std::move(protocol),
                                                      std::move(realm), std::move(authenticationMethod));
    }

    const std::string& host() const { return host_; }
    long port() const { return port_; }
    const std::optional<std::string>& protocol() const { return protocol_; }
    const std::optional<std::string>& realm() const { return realm_; }
    const std::string& authenticationMethod() const { return authenticationMethod_; }
    bool receivesCredentialSecurely() const { return protocol_ && *protocol_ == NSURLProtectionSpaceHTTPS; }

private:
    const std::string host_;
    const long port_;
    const std::optional<std::string> protocol_;
    const std::optional<std::string> realm_;
    const std::string authenticationMethod_;
};

}  // namespace platform
