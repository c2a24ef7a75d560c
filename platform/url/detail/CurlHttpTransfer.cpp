#include "platform/url/detail/CurlHttpTransfer.h"

#include <algorithm>
#include <charconv>

#include "platform/foundation/NSString.h"
#include "platform/url/URLError.h"
#include "platform/url/detail/CaseInsensitive.h"

namespace platform::detail {
namespace {

std::string_view trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string_view::npos) return {};
    const auto end = text.find_last_not_of(" \t\r\n");
    return text.substr(begin, end - begin + 1);
}

bool hasField(const NSURLRequest& request, std::string_view name) {
    return request.valueForHTTPHeaderField(name).has_value();
}

// "Name: value", or "Name;" for an empty value, which is how curl is told to send one.
std::string fieldLine(const std::string& name, const std::string& value) {
    return value.empty() ? name + ";" : name + ": " + value;
}

}  // namespace

std::shared_ptr<NSError> URLErrorForCurlResult(CURLcode result, const std::shared_ptr<NSURL>& url) {
    long code;
    switch (result) {
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            code = NSURLErrorCannotFindHost;
            break;
        case CURLE_COULDNT_CONNECT:
            code = NSURLErrorCannotConnectToHost;
            break;
        case CURLE_OPERATION_TIMEDOUT:
            code = NSURLErrorTimedOut;
            break;
        case CURLE_UNSUPPORTED_PROTOCOL:
            code = NSURLErrorUnsupportedURL;
            break;
        case CURLE_URL_MALFORMAT:
            code = NSURLErrorBadURL;
            break;
        case CURLE_GOT_NOTHING:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_PARTIAL_FILE:
            code = NSURLErrorNetworkConnectionLost;
            break;
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
            code = NSURLErrorBadServerResponse;
            break;
        case CURLE_BAD_CONTENT_ENCODING:
            code = NSURLErrorCannotDecodeContentData;
            break;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
            code = NSURLErrorSecureConnectionFailed;
            break;
        case CURLE_READ_ERROR:
        case CURLE_ABORTED_BY_CALLBACK:
            code = NSURLErrorRequestBodyStreamExhausted;
            break;
        default:
            code = NSURLErrorUnknown;
            break;
    }
    return NSURLErrorWithCode(code, url);
}

CurlHttpTransfer::CurlHttpTransfer(Options options, Handlers handlers)
    : options_(std::move(options)), handlers_(std::move(handlers)) {}

std::shared_ptr<CurlHttpTransfer> CurlHttpTransfer::make(Options options, Handlers handlers) {
    std::shared_ptr<CurlHttpTransfer> transfer(new CurlHttpTransfer(std::move(options), std::move(handlers)));
    if (!transfer->configure()) return nullptr;
    return transfer;
}

CurlHttpTransfer::~CurlHttpTransfer() {
    if (easy_ != nullptr) curl_easy_cleanup(easy_);
    curl_slist_free_all(fields_);
}

bool CurlHttpTransfer::configure() {
    const NSURLRequest& request = *options_.request;
    if (!request.URL()) return false;
    easy_ = curl_easy_init();
    if (easy_ == nullptr) return false;
    url_ = request.URL()->absoluteString();
    method_ = request.HTTPMethod();

    curl_easy_setopt(easy_, CURLOPT_URL, url_.c_str());
    curl_easy_setopt(easy_, CURLOPT_PRIVATE, this);
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_ERRORBUFFER, errorText_);
    curl_easy_setopt(easy_, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy_, CURLOPT_FOLLOWLOCATION, 0L);
    // Content-Encoding is decoded for the caller, as the platform does.
    curl_easy_setopt(easy_, CURLOPT_ACCEPT_ENCODING, "");
    // Environment proxies are no platform setting.
    curl_easy_setopt(easy_, CURLOPT_PROXY, "");
    curl_easy_setopt(easy_, CURLOPT_HEADERFUNCTION, &CurlHttpTransfer::onHeader);
    curl_easy_setopt(easy_, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &CurlHttpTransfer::onBody);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(easy_, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(easy_, CURLOPT_XFERINFOFUNCTION, &CurlHttpTransfer::onProgress);
    curl_easy_setopt(easy_, CURLOPT_XFERINFODATA, this);

    const bool hasBody = options_.body || options_.stream;
    if (method_ == "HEAD") {
        curl_easy_setopt(easy_, CURLOPT_NOBODY, 1L);
    } else if (hasBody || method_ == "POST") {
        curl_easy_setopt(easy_, CURLOPT_POST, 1L);
        if (options_.body && options_.body->length() > 0) {
            curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, options_.body->bytes());
            curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE,
                             static_cast<curl_off_t>(options_.body->length()));
        } else if (options_.stream) {
            curl_easy_setopt(easy_, CURLOPT_READFUNCTION, &CurlHttpTransfer::onRead);
            curl_easy_setopt(easy_, CURLOPT_READDATA, this);
            // Without a Content-Length of the caller's, a stream goes out chunked.
            curl_off_t length = -1;
            if (auto declared = request.valueForHTTPHeaderField("Content-Length")) {
                auto text = trimmed(*declared);
                std::from_chars(text.data(), text.data() + text.size(), length);
            }
            curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, length);
        } else {
            curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, "");
            curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(0));
        }
        if (method_ != "POST") curl_easy_setopt(easy_, CURLOPT_CUSTOMREQUEST, method_.c_str());
    } else if (method_ != "GET") {
        curl_easy_setopt(easy_, CURLOPT_CUSTOMREQUEST, method_.c_str());
    }

    if (auto fields = request.allHTTPHeaderFields()) {
        for (const auto& [name, value] : *fields)
            fields_ = curl_slist_append(fields_, fieldLine(name, value).c_str());
    }
    if (options_.additionalHeaders) {
        for (const auto& [key, value] : *options_.additionalHeaders) {
            auto name = NSStringValue(key);
            auto text = NSStringValue(value);
            if (name && text && !hasField(request, *name)) {
                fields_ = curl_slist_append(fields_, fieldLine(*name, *text).c_str());
            }
        }
    }
    // The platform sends a body at once, without waiting for "100 Continue".
    if (!hasField(request, "Expect")) fields_ = curl_slist_append(fields_, "Expect:");
    curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, fields_);

    if (options_.credential) {
        curl_easy_setopt(easy_, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC));
        curl_easy_setopt(easy_, CURLOPT_USERNAME, options_.credential->user().c_str());
        curl_easy_setopt(easy_, CURLOPT_PASSWORD, options_.credential->password().c_str());
    }
    return true;
}

bool CurlHttpTransfer::start() {
    touch();
    running_ = URLLoaderThread::shared().add(shared_from_this());
    return running_;
}

void CurlHttpTransfer::cancel() {
    handlers_ = Handlers{};
    if (!running_) return;
    running_ = false;
    URLLoaderThread::shared().remove(this);
}

URLLoaderTransfer::Clock::time_point CurlHttpTransfer::deadline() const {
    const auto idle =
        options_.idleTimeout.count() > 0 ? lastActivity_ + options_.idleTimeout : Clock::time_point::max();
    return std::min(idle, options_.resourceDeadline);
}

void CurlHttpTransfer::transferDidEnd(CURLcode result, bool timedOut) {
    running_ = false;
    auto end = std::move(handlers_.end);
    handlers_ = Handlers{};
    if (!end) return;
    if (timedOut) {
        end(NSURLErrorWithCode(NSURLErrorTimedOut, options_.request->URL()));
    } else if (result != CURLE_OK) {
        end(URLErrorForCurlResult(result, options_.request->URL()));
    } else {
        end(nullptr);
    }
}

void CurlHttpTransfer::headerLine(std::string_view line) {
    if (headersDelivered_) return;  // trailers
    if (line.starts_with("HTTP/")) {
        received_.clear();
        const auto space = line.find(' ');
        httpVersion_ = std::string(line.substr(0, space));
        status_ = 0;
        if (space != std::string_view::npos) {
            auto code = trimmed(line.substr(space + 1)).substr(0, 3);
            std::from_chars(code.data(), code.data() + code.size(), status_);
        }
        return;
    }
    // find_last_not_of gives npos for a bare "\r\n", and npos + 1 is 0: an empty line.
    const auto content = line.substr(0, line.find_last_not_of("\r\n") + 1);
    if (content.empty()) {
        // The end of a block; an interim (1xx) block is followed by the real one.
        if (status_ >= 100 && status_ < 200) return;
        headersDelivered_ = true;
        if (handlers_.headers) handlers_.headers(status_, httpVersion_, std::move(received_));
        return;
    }
    if ((content.front() == ' ' || content.front() == '\t') && !received_.empty()) {
        received_.back().second += " " + std::string(trimmed(content));
        return;
    }
    const auto colon = content.find(':');
    if (colon == std::string_view::npos) return;
    received_.emplace_back(std::string(trimmed(content.substr(0, colon))),
                           std::string(trimmed(content.substr(colon + 1))));
}

size_t CurlHttpTransfer::onHeader(char* data, size_t size, size_t count, void* self) {
    auto* transfer = static_cast<CurlHttpTransfer*>(self);
    const size_t length = size * count;
    try {
        transfer->touch();
        transfer->headerLine(std::string_view(data, length));
    } catch (...) {
        return 0;
    }
    return length;
}

size_t CurlHttpTransfer::onBody(char* data, size_t size, size_t count, void* self) {
    auto* transfer = static_cast<CurlHttpTransfer*>(self);
    const size_t length = size * count;
    try {
        transfer->touch();
        if (length > 0 && transfer->handlers_.body)
            transfer->handlers_.body(NSData::dataWithBytes(data, length));
    } catch (...) {
        return 0;
    }
    return length;
}

size_t CurlHttpTransfer::onRead(char* buffer, size_t size, size_t count, void* self) {
    auto* transfer = static_cast<CurlHttpTransfer*>(self);
    try {
        transfer->touch();
        const long read = transfer->options_.stream->read(reinterpret_cast<uint8_t*>(buffer), size * count);
        if (read < 0) return CURL_READFUNC_ABORT;
        transfer->streamed_.append(buffer, static_cast<size_t>(read));
        return static_cast<size_t>(read);
    } catch (...) {
        return CURL_READFUNC_ABORT;
    }
}

int CurlHttpTransfer::onProgress(void* self, curl_off_t, curl_off_t downloaded, curl_off_t,
                                 curl_off_t uploaded) {
    auto* transfer = static_cast<CurlHttpTransfer*>(self);
    if (downloaded != transfer->downloaded_ || uploaded != transfer->uploaded_) {
        transfer->downloaded_ = downloaded;
        transfer->uploaded_ = uploaded;
        transfer->touch();
    }
    return 0;
}

}  // namespace platform::detail
