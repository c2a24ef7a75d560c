#pragma once
// A captured HTTP response as the host's response sanitizer sees it, exported as QLMResponse. Only
// responseFrom makes one; the sanitizer may change url, headers and body, which changes the report
// and never what the host receives.
//
// Threads: belongs to the operation that built it (a capturing session's delegate queue) and has
// no lock. Capture reads it only there and hands a detached copy on, so a sanitizer may keep it
// and change it later.
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "QuillmereExport.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSObject.h"
#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSURLRequest.h"

namespace quillmere {

class Response;

// `urlResponse` null stands for a failure or a response that isn't HTTP: status 0, no headers.
// The URL is the response's, else the request's; none when neither has one.
std::shared_ptr<Response> responseFrom(const std::shared_ptr<platform::NSHTTPURLResponse>& urlResponse,
                                       const platform::NSURLRequest& urlRequest,
                                       std::shared_ptr<platform::NSData> body, int64_t reqID);

// All or nothing: none when `fields` is null or any key or value in it is no string.
std::optional<std::map<std::string, std::string>> stringHeadersFrom(
    const std::shared_ptr<platform::NSDictionary>& fields);

class QLM_EXPORT Response final : public platform::NSObject {
    PLATFORM_OBJC_CLASS_NAMED(Response, platform::NSObject, "QLMResponse")
public:
    using Headers = std::map<std::string, std::string>;

    // Null when no body was received, or the exchange failed. The capture's own buffer: replace
    // it, don't write through it.
    const std::shared_ptr<platform::NSData>& body() const { return body_; }
    void setBody(std::shared_ptr<platform::NSData> body) { body_ = std::move(body); }
    const std::optional<Headers>& headers() const { return headers_; }
    void setHeaders(std::optional<Headers> headers) { headers_ = std::move(headers); }
    const std::string& method() const { return method_; }
    int64_t reqID() const { return reqID_; }
    uint32_t status() const { return status_; }
    const std::optional<std::string>& url() const { return url_; }
    void setUrl(std::optional<std::string> url) { url_ = std::move(url); }

    // For another thread, which may read it while a sanitizer that kept this object changes it:
    // the fields copied, and the body's bytes too unless the body is `ownBody`, a buffer that
    // only capture holds and nobody writes any more.
    std::shared_ptr<Response> detachedCopy(const std::shared_ptr<platform::NSData>& ownBody) const;

    // For responseFrom and copies only; the key can't be named elsewhere.
    class ConstructionKey {
        friend std::shared_ptr<Response> responseFrom(const std::shared_ptr<platform::NSHTTPURLResponse>&,
                                                      const platform::NSURLRequest&,
                                                      std::shared_ptr<platform::NSData>, int64_t);
        friend class Response;
        ConstructionKey() = default;
    };
    Response(ConstructionKey, std::string method, int64_t reqID, uint32_t status)
        : method_(std::move(method)), reqID_(reqID), status_(status) {}

private:
    // Confined to the thread that built the object, as the header says; no lock.
    std::shared_ptr<platform::NSData> body_;
    std::optional<Headers> headers_;
    const std::string method_;
    const int64_t reqID_;
    const uint32_t status_;
    std::optional<std::string> url_;
};

}  // namespace quillmere
