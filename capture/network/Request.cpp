#include "capture/network/Request.h"

#include <array>

namespace quillmere {

std::shared_ptr<Request> requestFrom(const platform::NSURLRequest& urlRequest, int64_t reqID) {
    const auto& url = urlRequest.URL();
    if (!url) return nullptr;
    auto headers = urlRequest.allHTTPHeaderFields();
    if (!headers) return nullptr;
    auto request = std::make_shared<Request>(Request::ConstructionKey(), urlRequest.HTTPMethod(), reqID);
    request->setUrl(url->absoluteString());
    request->setHeaders(std::move(headers));
    if (const auto& body = urlRequest.HTTPBody()) {
        request->setBody(body);
    } else if (const auto& stream = urlRequest.HTTPBodyStream()) {
        request->setBody(dataFromStream(*stream));
    }
    return request;
}

std::shared_ptr<Request> Request::detachedCopy(const std::shared_ptr<platform::NSData>& ownBody) const {
    auto copy = std::make_shared<Request>(ConstructionKey(), method_, reqID_);
    copy->url_ = url_;
    copy->headers_ = headers_;
    copy->body_ =
        body_ == ownBody || !body_ ? body_ : platform::NSData::dataWithBytes(body_->bytes(), body_->length());
    return copy;
}

std::shared_ptr<platform::NSData> dataFromStream(platform::NSInputStream& stream) {
    auto data = platform::NSMutableData::data();
    std::array<uint8_t, 4096> buffer;
    stream.open();
    for (;;) {
        const long read = stream.read(buffer.data(), buffer.size());
        if (read < 1) break;
        data->appendBytes(buffer.data(), static_cast<std::size_t>(read));
    }
    stream.close();
    return data;
}

}  // namespace quillmere
