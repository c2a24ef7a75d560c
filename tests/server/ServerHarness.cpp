#include "tests/server/ServerHarness.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "capture/network/JsonValue.h"
#include "capture/screen/RecursiveViewProcessor.h"
#include "platform/uikit/UILabel.h"
#include "platform/uikit/UITextField.h"
#include "platform/uikit/UIView.h"
#include "server/store/SqliteStore.h"
#include "wire/qm_core.pb.h"
#include "wire/qm_ios.pb.h"
#include "wire/qm_network.pb.h"

namespace qlm_test {

qm::Event eventOf(uint32_t seqID, const google::protobuf::Message& inner) {
    qm::Event event;
    event.set_time(1700000000000.0 + seqID * 100);
    event.set_timeoffset(seqID * 100.0);
    event.set_seqid(seqID);
    event.set_type(inner.GetDescriptor()->full_name());
    event.set_data(inner.SerializeAsString());
    return event;
}

qm::Event eventAt(uint32_t seqID, double offset, const google::protobuf::Message& inner) {
    qm::Event event = eventOf(seqID, inner);
    event.set_time(1700000000000.0 + offset);
    event.set_timeoffset(offset);
    return event;
}

qm::ios::PDFViewCapture capturedScreen(const std::string& text, const std::string& secret) {
    auto root = platform::UIView::make(platform::CGRectMake(0, 0, 390, 844));
    auto label = platform::UIView::make<platform::UILabel>(platform::CGRectMake(20, 40, 340, 30));
    label->setText(text);
    root->addSubview(label);
    if (!secret.empty()) {
        auto field = platform::UIView::make<platform::UITextField>(platform::CGRectMake(20, 100, 340, 40));
        field->setSecureTextEntry(true);
        field->setText(secret);
        root->addSubview(field);
    }
    const quillmere::RecursiveViewProcessor processor({});
    qm::ios::PDFViewCapture capture;
    capture.set_pdfdata(std::string(processor.renderViews({root})->view()));
    capture.set_width(390);
    capture.set_height(844);
    return capture;
}

qm::core::LogEvent capturedOutput(const std::string& text, qm::core::LogEvent::LogLevel level) {
    qm::core::LogEvent log;
    log.set_loglevel(level);
    *log.add_args() = *quillmere::jsonValue(text);
    return log;
}

std::string fakePdf(std::size_t size) {
    std::string pdf = "%PDF-1.4\n1 0 obj << /Type /Catalog >> endobj\n";
    while (pdf.size() + 6 < size) pdf += static_cast<char>('a' + pdf.size() % 26);
    return pdf + "%%EOF\n";
}

std::vector<qm::Event> everyKindOfEvent(uint32_t first) {
    qm::Metadata metadata;
    metadata.set_sdkversion("1.0");
    qm::Identify identify;
    identify.set_userid("user-<7>");  // must come out escaped in HTML
    qm::core::LogEvent log;
    log.add_args()->set_arson("hello from stdout");
    qm::ios::PDFViewCapture capture;
    capture.set_pdfdata(fakePdf(3000));
    qm::ios::TouchEvent touch;
    touch.add_moves()->set_x(10.0f);
    qm::network::RequestEvent request;
    request.set_method(qm::network::POST);
    qm::network::ResponseEvent response;
    response.set_status(204);
    response.set_duration(12.5);

    const google::protobuf::Message* inners[] = {&metadata, &identify, &log,     &capture,
                                                 &touch,    &request,  &response};
    std::vector<qm::Event> events;
    for (const auto* inner : inners)
        events.push_back(eventOf(first + static_cast<uint32_t>(events.size()), *inner));
    return events;
}

std::string encodeBatch(const std::vector<qm::Event>& events, const std::string& appID) {
    qm::EventList list;
    list.set_appid(appID);
    for (const auto& event : events) *list.add_events() = event;
    return list.SerializeAsString();
}

Reply request(const std::string& method, const std::string& url, const std::string& body) {
    // Older libcurl sets itself up lazily in a way that is not safe from several threads.
    [[maybe_unused]] static const CURLcode global = curl_global_init(CURL_GLOBAL_DEFAULT);
    Reply reply;
    CURL* curl = curl_easy_init();
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, 20000L);
    curl_easy_setopt(
        curl, CURLOPT_WRITEFUNCTION, +[](char* data, size_t size, size_t count, void* into) {
            static_cast<std::string*>(into)->append(data, size * count);
            return size * count;
        });
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
    if (method != "GET") {
        curl_easy_setopt(curl, CURLOPT_POST, 1L);
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
        if (method != "POST") curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
    }
    const CURLcode code = curl_easy_perform(curl);
    if (code == CURLE_OK) {
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
        const char* type = nullptr;
        curl_easy_getinfo(curl, CURLINFO_CONTENT_TYPE, &type);
        if (type != nullptr) reply.contentType = type;
    } else {
        reply.error = curl_easy_strerror(code);
    }
    curl_easy_cleanup(curl);
    return reply;
}

RawConnection::RawConnection(uint16_t port, const char* from)
    : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in source{};
    source.sin_family = AF_INET;
    ::inet_pton(AF_INET, from, &source.sin_addr);
    (void)::bind(fd_, reinterpret_cast<const sockaddr*>(&source), sizeof source);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    (void)::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

RawConnection::~RawConnection() {
    if (fd_ >= 0) ::close(fd_);
}

bool RawConnection::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

std::string RawConnection::readUntilClosed() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::string received;
    char chunk[16384];
    while (!closed_) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd pfd{fd_, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&pfd, 1, static_cast<int>(left.count())) <= 0) break;
        const ssize_t got = ::recv(fd_, chunk, sizeof chunk, 0);
        closed_ = got <= 0;  // an orderly close or a reset: either way the server let go
        if (got > 0) received.append(chunk, static_cast<std::size_t>(got));
    }
    return received;
}

namespace {

qlm::ingest::HttpServerOptions withSecurityHeaders(qlm::ingest::HttpServerOptions options) {
    options.headers = qlm::ingest::IngestService::securityHeaders();
    return options;
}

}  // namespace

RunningServer::RunningServer(qlm::ingest::HttpServerOptions options, qlm::ingest::WebFolders web,
                             std::unique_ptr<qlm::ingest::RecordingStore> store)
    : store_(store ? std::move(store) : qlm::ingest::SqliteStore::createTemporary()),
      server_(withSecurityHeaders(std::move(options)),
              [this](const qlm::ingest::HttpRequest& request) { return service_->handle(request); }) {
    server_.listen();
    service_.emplace(*store_, url(), web);
    server_.start();
}

}  // namespace qlm_test
