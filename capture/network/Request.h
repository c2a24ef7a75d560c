#pragma once
// A captured HTTP request as the host's request sanitizer sees it, exported as QLMRequest. Only
// requestFrom makes one; the sanitizer may change url, headers and body, which changes the report
// and never the request that goes out.
//
// Threads: belongs to the operation that built it (the loader thread's startLoading) and has no
// lock. Capture reads it only there and hands a detached copy on, so a sanitizer may keep it and
// change it later.
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "QuillmereExport.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSObject.h"
#include "platform/url/NSInputStream.h"
#include "platform/url/NSURLRequest.h"

namespace quillmere {

class Request;

// None when the request has no URL or no header dictionary (a request that never had a field
// set); the body stream is read only once both are known to be there.
std::shared_ptr<Request> requestFrom(const platform::NSURLRequest& urlRequest, int64_t reqID);

// Opens, reads to its end (or first failure) and closes `stream`, which is spent afterwards.
// Never null: an empty or failing stream gives what was read, possibly nothing.
std::shared_ptr<platform::NSData> dataFromStream(platform::NSInputStream& stream);

class QLM_EXPORT Request final : public platform::NSObject {
    PLATFORM_OBJC_CLASS_NAMED(Request, platform::NSObject, "QLMRequest")
public:
    using Headers = std::map<std::string, std::string>;

    // Null when the request had no body. Shared with the request that goes out: replace it, don't
    // write through it.
    const std::shared_ptr<platform::NSData>& body() const { return body_; }
    void setBody(std::shared_ptr<platform::NSData> body) { body_ = std::move(body); }
    const std::optional<Headers>& headers() const { return headers_; }
    void setHeaders(std::optional<Headers> headers) { headers_ = std::move(headers); }
    const std::string& method() const { return method_; }
    int64_t reqID() const { return reqID_; }
    const std::optional<std::string>& url() const { return url_; }
    void setUrl(std::optional<std::string> url) { url_ = std::move(url); }

    // For another thread, which may read it while a sanitizer that kept this object changes it:
    // the fields copied, and the body's bytes too unless the body is `ownBody`, a buffer that
    // only capture holds and nobody writes any more.
    std::shared_ptr<Request> detachedCopy(const std::shared_ptr<platform::NSData>& ownBody) const;

    // For requestFrom and copies only; the key can't be named elsewhere.
    class ConstructionKey {
        friend std::shared_ptr<Request> requestFrom(const platform::NSURLRequest&, int64_t);
        friend class Request;
        ConstructionKey() = default;
    };
    Request(ConstructionKey, std::string method, int64_t reqID) : method_(std::move(method)), reqID_(reqID) {}

private:
    // Confined to the thread that built the object, as the header says; no lock.
    std::shared_ptr<platform::NSData> body_;
    std::optional<Headers> headers_;
    const std::string method_;
    const int64_t reqID_;
    std::optional<std::string> url_;
};

}  // namespace quillmere
