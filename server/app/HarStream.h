#pragma once
// The body of ".../network.har": a recording's HAR log (HarLog.h) made as it is sent, a page of
// stored events at a time, so that no reply holds a whole recording. Used from one thread at a
// time (the connection's); the store must outlive it.
#include <cstdint>
#include <optional>
#include <string>

#include "server/store/RecordingStore.h"
#include "server/views/HarLog.h"

namespace qlm::ingest {

class HarStream {
public:
    HarStream(const RecordingStore& store, const RecordingSummary& recording);

    // The next piece of the document (perhaps empty); nullopt once the whole has been given.
    std::optional<std::string> next();

private:
    const RecordingStore& store_;
    const RecordingKey key_;
    HarLog log_;
    bool begun_ = false;
    bool ended_ = false;
    std::optional<uint32_t> after_;  // the last seqID read
};

}  // namespace qlm::ingest
