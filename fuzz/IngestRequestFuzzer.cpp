// Feeds arbitrary uploads (query and body, see IngestFuzzInput.h) to the decoding every upload goes
// through. Beyond not crashing, an accepted upload must be one the views can show, and a refused
// one must say why.
#include <google/protobuf/stubs/logging.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "fuzz/IngestFuzzInput.h"
#include "server/ingest/EventSummary.h"
#include "server/ingest/IngestRequest.h"
#include "server/ingest/InnerMessage.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Invalid UTF-8 in a string field is refused as it should be, but protobuf also logs each one.
    google::protobuf::SetLogHandler(nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto input =
        qlm_fuzz::splitIngestFuzzInput(std::string_view(reinterpret_cast<const char*>(data), size));
    const qlm::ingest::IngestDecoding decoding = qlm::ingest::decodeIngestRequest(input.query, input.body);
    if (!decoding.batch) {
        if (decoding.error.empty()) __builtin_trap();
        return 0;
    }
    const auto& batch = *decoding.batch;
    if (!decoding.error.empty() || batch.key.appID.empty() || batch.key.recordingID.empty() ||
        batch.tabID.empty()) {
        __builtin_trap();
    }
    const auto& known = qlm::ingest::knownEventTypes();
    for (const auto& event : batch.events) {
        if (std::find(known.begin(), known.end(), event.type) == known.end()) __builtin_trap();
        if (!nlohmann::json::accept(event.json)) __builtin_trap();
        if (event.summary.size() > qlm::ingest::kMaxSummaryBytes) __builtin_trap();
    }
    return 0;
}
