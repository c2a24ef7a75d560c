#include "engine/Session.h"

#include <algorithm>
#include <cctype>

#include "platform/foundation/NSUUID.h"

namespace quillmere {

std::string Session::lowercaseUUID() {
    std::string text = platform::NSUUID::UUID()->UUIDString();
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::shared_ptr<Session> Session::make(std::string appID) {
    std::string recordingID = "5-" + lowercaseUUID();
    return std::make_shared<Session>(std::move(appID), std::move(recordingID), 0);
}

Session::Session(std::string appID, std::string recordingID, uint32_t sessionID)
    : tabID_(lowercaseUUID()),
      startTime_(platform::NSDate::date()),
      appID_(std::move(appID)),
      recordingID_(std::move(recordingID)),
      sessionID_(sessionID) {}

}  // namespace quillmere
