#pragma once
// What the server tests share: upload bodies made with the generated classes as the library makes
// them, a real HTTP client (libcurl, usable from several threads at once), a bare socket for what
// no well-behaved client does, and the server put together as the program puts it together.
#include <google/protobuf/message.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/app/IngestService.h"
#include "server/http/HttpServer.h"
#include "server/store/RecordingStore.h"
#include "wire/qm.pb.h"
#include "wire/qm_core.pb.h"
#include "wire/qm_ios.pb.h"

namespace qlm_test {

// An event of the inner message's own type, with times derived from seqID.
qm::Event eventOf(uint32_t seqID, const google::protobuf::Message& inner);
// An event at `offset` milliseconds into a session that began at 1700000000000.
qm::Event eventAt(uint32_t seqID, double offset, const google::protobuf::Message& inner);
// One event of each of the seven types, seqIDs first..first+6; at first+3 a capture of fakePdf(3000).
std::vector<qm::Event> everyKindOfEvent(uint32_t first = 0);
// A screen as the library's own renderer captures it: a label showing `text` on a view the size
// of a phone's screen and, when `secret` is not empty, a secure text field holding it.
qm::ios::PDFViewCapture capturedScreen(const std::string& text, const std::string& secret = "");
// Output as the library captures it: the text wrapped in a JSON array.
qm::core::LogEvent capturedOutput(const std::string& text,
                                  qm::core::LogEvent::LogLevel level = qm::core::LogEvent::LOG);
std::string encodeBatch(const std::vector<qm::Event>& events, const std::string& appID = "app-1");
std::string fakePdf(std::size_t size);

struct Reply {
    long status = 0;  // 0 when no reply arrived; then error says why
    std::string body, contentType, error;
};
Reply request(const std::string& method, const std::string& url, const std::string& body = "");
inline Reply get(const std::string& url) {
    return request("GET", url);
}
inline Reply post(const std::string& url, const std::string& body) {
    return request("POST", url, body);
}

class RawConnection {
public:
    // To 127.0.0.1, from `from` (another loopback address stands for another client); a failed
    // connect makes send() fail.
    explicit RawConnection(uint16_t port, const char* from = "127.0.0.1");
    ~RawConnection();
    RawConnection(const RawConnection&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;

    bool send(std::string_view bytes);
    // What arrives until the server closes the connection, or until 10 s have passed.
    std::string readUntilClosed();
    bool closedByPeer() const { return closed_; }

private:
    int fd_ = -1;
    bool closed_ = false;
};

// On an ephemeral loopback port with the security headers and a store: a temporary SQLite one unless
// given; stopped, and a temporary store removed, on destruction.
class RunningServer {
public:
    explicit RunningServer(qlm::ingest::HttpServerOptions options = {}, qlm::ingest::WebFolders web = {},
                           std::unique_ptr<qlm::ingest::RecordingStore> store = nullptr);

    std::string url(std::string_view pathAndQuery = "") const {
        return "http://127.0.0.1:" + std::to_string(server_.port()) + std::string(pathAndQuery);
    }
    // Where the library posts for session 0 of that recording of "app-1".
    std::string ingestURL(const std::string& recordingID) const {
        return url("/i?a=app-1&r=" + recordingID + "&t=tab-1&s=0&ir=t");
    }
    std::size_t stored(const std::string& recordingID) const {
        return store_->events({"app-1", recordingID, 0}).size();
    }
    uint16_t port() const { return server_.port(); }
    qlm::ingest::RecordingStore& store() { return *store_; }
    qlm::ingest::HttpServer& http() { return server_; }

private:
    std::unique_ptr<qlm::ingest::RecordingStore> store_;
    std::optional<qlm::ingest::IngestService> service_;  // set before the server accepts
    qlm::ingest::HttpServer server_;                     // declared last: stopped first
};

}  // namespace qlm_test
