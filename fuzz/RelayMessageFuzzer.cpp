// The reading of the ingest server's reply bodies: relay messages and the dashboard address in them.
// Any input must end in a list, short or empty, never in a fault.
#include <cstddef>
#include <cstdint>

#include "platform/foundation/NSData.h"
#include "upload/RelayMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto body = platform::NSData::dataWithBytes(data, size);
    for (const auto& message : quillmere::parseRelayMessages(body)) {
        if (auto url = message.dashboardURL()) (void)url->size();
    }
    return 0;
}
