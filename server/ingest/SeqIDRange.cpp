#include "server/ingest/SeqIDRange.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <climits>
#include <cstdint>

namespace qlm::ingest {

namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

constexpr int kEventsField = 1;   // qm.EventList.events
constexpr int kSeqIDField = 5;    // qm.Event.seqID

bool eventFits(CodedInputStream& input) {
    while (const uint32_t tag = input.ReadTag()) {
        if (WireFormatLite::GetTagFieldNumber(tag) == kSeqIDField &&
            WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_VARINT) {
            uint64_t value = 0;
            if (!input.ReadVarint64(&value) || value > UINT32_MAX) return false;
        } else if (!WireFormatLite::SkipField(&input, tag)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool seqIDsFitIn32Bits(std::string_view body) {
    if (body.size() > static_cast<std::size_t>(INT_MAX)) return false;
    CodedInputStream input(reinterpret_cast<const uint8_t*>(body.data()), static_cast<int>(body.size()));
    while (const uint32_t tag = input.ReadTag()) {
        if (WireFormatLite::GetTagFieldNumber(tag) == kEventsField &&
            WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_LENGTH_DELIMITED) {
            uint32_t length = 0;
            if (!input.ReadVarint32(&length)) return false;
            const auto limit = input.PushLimit(static_cast<int>(length));
            if (!eventFits(input) || !input.ConsumedEntireMessage()) return false;
            input.PopLimit(limit);
        } else if (!WireFormatLite::SkipField(&input, tag)) {
            return false;
        }
    }
    return true;
}

}  // namespace qlm::ingest
