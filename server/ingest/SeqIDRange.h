#pragma once
// Protobuf reads a varint into a uint32 field by dropping its high bits, so a seqID of 2^32 would
// arrive as 0 and overwrite nothing but silently shadow the real event 0. This reads the numbers as
// they are on the wire. A pure function, safe from any thread.
#include <string_view>

namespace qlm::ingest {

// False when some event of the qm.EventList `body` carries a seqID above 4294967295, or when the
// body cannot be walked at all.
bool seqIDsFitIn32Bits(std::string_view body);

}  // namespace qlm::ingest
