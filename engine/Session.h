#pragma once
// The identity of one recording run. Fixed once made, but for its event counter: any thread may
// read it. Shared by the Core and its Uploader.
#include <cstdint>
#include <memory>
#include <string>

#include "engine/AtomicInteger.h"
#include "platform/foundation/NSDate.h"

namespace quillmere {

class Session {
public:
    // A new recording of `appID`: new random recording and tab identifiers, a counter at 0.
    static std::shared_ptr<Session> make(std::string appID);

    Session(std::string appID, std::string recordingID, uint32_t sessionID);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const std::string& appID() const { return appID_; }
    // "5-" and a lower-case UUID.
    const std::string& recordingID() const { return recordingID_; }
    uint32_t sessionID() const { return sessionID_; }
    uint32_t threadID() const { return threadID_; }
    // A lower-case UUID.
    const std::string& tabID() const { return tabID_; }
    const platform::NSDate& startTime() const { return *startTime_; }
    // The next event's sequence number is taken with getAndIncrement.
    AtomicInteger& seqID() { return seqID_; }

    // A new random UUID in its 36-character text, lower case.
    static std::string lowercaseUUID();

private:
    const uint32_t threadID_ = 0;
    const std::string tabID_;
    const std::shared_ptr<platform::NSDate> startTime_;
    AtomicInteger seqID_{0};
    const std::string appID_;
    const std::string recordingID_;
    const uint32_t sessionID_;
};

}  // namespace quillmere
