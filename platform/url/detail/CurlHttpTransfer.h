#pragma once
// One HTTP exchange on a curl easy handle, driven by the loader thread: the request goes out as
// given (method, fields, body from data or from a stream), redirects are not followed, the
// response body is decoded as its Content-Encoding says, and the header block and body pieces are
// handed to the owner as they arrive. All methods and handlers run on the loader thread.
#include <curl/curl.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/url/NSInputStream.h"
#include "platform/url/NSURLCredential.h"
#include "platform/url/NSURLRequest.h"
#include "platform/url/detail/URLLoaderThread.h"

namespace platform::detail {

class CurlHttpTransfer final : public URLLoaderTransfer,
                               public std::enable_shared_from_this<CurlHttpTransfer> {
public:
    using HeaderFields = std::vector<std::pair<std::string, std::string>>;  // in arrival order

    struct Options {
        std::shared_ptr<NSURLRequest> request;
        std::shared_ptr<NSData> body;                     // sent when set
        std::shared_ptr<NSInputStream> stream;            // else read from here, already open
        std::shared_ptr<NSDictionary> additionalHeaders;  // fields the request does not set; may be null
        std::shared_ptr<NSURLCredential> credential;      // sent as Basic authorization; may be null
        Clock::duration idleTimeout;
        Clock::time_point resourceDeadline;
    };

    struct Handlers {
        // The final header block (interim 1xx blocks are skipped).
        std::function<void(long status, std::string httpVersion, HeaderFields fields)> headers;
        std::function<void(std::shared_ptr<NSData> piece)> body;
        // nullptr on success.
        std::function<void(std::shared_ptr<NSError> error)> end;
    };

    // nullptr when curl cannot make a handle.
    static std::shared_ptr<CurlHttpTransfer> make(Options options, Handlers handlers);
    ~CurlHttpTransfer() override;

    // Puts the transfer on the loader's multi handle; false when that fails.
    bool start();
    // Takes it off; no handler is called after.
    void cancel();
    // The bytes read from the body stream so far.
    const std::string& streamedBody() const { return streamed_; }

    CURL* easyHandle() const override { return easy_; }
    Clock::time_point deadline() const override;
    void transferDidEnd(CURLcode result, bool timedOut) override;

private:
    CurlHttpTransfer(Options options, Handlers handlers);
    bool configure();
    void touch() { lastActivity_ = Clock::now(); }

    static size_t onHeader(char* data, size_t size, size_t count, void* self);
    static size_t onBody(char* data, size_t size, size_t count, void* self);
    static size_t onRead(char* buffer, size_t size, size_t count, void* self);
    static int onProgress(void* self, curl_off_t downloadTotal, curl_off_t downloaded, curl_off_t uploadTotal,
                          curl_off_t uploaded);
    void headerLine(std::string_view line);

    // Loader thread only, all of them.
    const Options options_;
    Handlers handlers_;
    CURL* easy_ = nullptr;
    curl_slist* fields_ = nullptr;
    std::string url_;
    std::string method_;
    char errorText_[CURL_ERROR_SIZE] = {};
    bool running_ = false;
    Clock::time_point lastActivity_;
    curl_off_t downloaded_ = 0;
    curl_off_t uploaded_ = 0;
    std::string streamed_;
    long status_ = 0;
    std::string httpVersion_;
    HeaderFields received_;
    bool headersDelivered_ = false;
};

// The URL loading system's error for a curl result.
std::shared_ptr<NSError> URLErrorForCurlResult(CURLcode result, const std::shared_ptr<NSURL>& url);

}  // namespace platform::detail
