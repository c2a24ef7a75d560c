#pragma once
// How an Uploader reaches the Core that owns it, which it holds only weakly. The Uploader calls in on
// the URL session's callback queue while other threads may read; implementations guard what they
// share.
#include <optional>
#include <string>

namespace quillmere {

class ReadyStateDelegate {
public:
    virtual ~ReadyStateDelegate() = default;

    // The dashboard's base address as the server last relayed it; nullopt until it has.
    virtual std::optional<std::string> dashboardURL() const = 0;
    virtual void setDashboardURL(std::string url) = 0;
    // The server accepted an upload (a 2xx reply): flushes the process's acceptance task queue with
    // this delegate's Core, which runs held getSessionURL completions on the calling thread.
    virtual void uploadAccepted() = 0;
};

}  // namespace quillmere
