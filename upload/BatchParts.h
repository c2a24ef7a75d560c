#pragma once
// Cuts one send's events into the lists that go as separate POSTs, so that no body grows past what
// an ingest server takes. Plain values; any thread.
#include <cstddef>
#include <vector>

#include "wire/qm.pb.h"

namespace quillmere {

// `list` as lists whose encodings stay within `limit` bytes, each with whole events, in order, and
// `list`'s app id. An event that alone makes a list longer than `limit` goes in a list of its own.
// A list within the limit comes back whole, as the one element. The events are moved, not copied.
std::vector<qm::EventList> splitIntoParts(qm::EventList&& list, std::size_t limit);

}  // namespace quillmere
