#pragma once
// A recording's network exchanges as an HTTP Archive (HAR 1.2), written a piece at a time so that
// a long recording is never held whole: begin(), add() for each of its stored events in seqID
// order (other types are passed over), end(). One entry per exchange (NetworkExchange.h), in the
// order the exchanges began; an exchange still unanswered holds back the ones after it until its
// response or the end comes, or until kMaxHeldExchanges are waiting, when it goes out unanswered.
//
// Where HAR leaves room, the entries are what Chromium's DevTools imports: "_resourceType" fetch,
// unknown sizes and phases -1, the whole duration as "wait", an unknown MIME type "x-unknown", an
// exchange without a response status 0 with "_error". Each entry carries its "_reqId". Not
// thread-safe; one per export.
#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>

#include "server/store/RecordingStore.h"
#include "server/views/NetworkExchange.h"

namespace qlm::ingest {

inline constexpr std::size_t kMaxHeldExchanges = 256;

class HarLog {
public:
    // `creatorVersion`: the version the log names its maker with.
    HarLog(RecordingSummary recording, std::string creatorVersion);

    std::string begin();
    // The entries this event lets out, as JSON text to append; often empty.
    std::string add(const StoredEvent& event);
    // The entries still held, and the end of the document.
    std::string end();

private:
    std::string release(bool all);
    std::string entry(const NetworkExchange& exchange) const;

    const RecordingSummary recording_;
    const std::string creatorVersion_;
    std::optional<double> sessionStart_;            // wall clock of offset 0, from the first event
    std::deque<NetworkExchange> held_;              // in the order the exchanges began
    std::map<std::string, NetworkExchange*> open_;  // reqId -> its held exchange awaiting a response
    std::size_t written_ = 0;                       // entries written so far
};

}  // namespace qlm::ingest
