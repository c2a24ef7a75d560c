#pragma once
// What both stores do to a page of found recordings once their queries have run: the stores ask
// for one recording beyond the page, to know whether another page follows, and fetch the moments
// of all the page's recordings in one further query.
#include <cstddef>
#include <cstdint>
#include <string>

#include "server/store/RecordingStore.h"

namespace qlm::ingest {

// Cuts `page` to `limit` recordings; when it had more, names where the next page starts.
void endPageAt(RecordingPage& page, std::size_t limit);

// The page's store ids, comma-separated between `open` and `close`: an array literal for the
// moments query ('[' ']' for SQLite's JSON, '{' '}' for PostgreSQL's arrays).
std::string storeIDList(const RecordingPage& page, char open, char close);

// Gives `moment` to the page's recording of `storeID`; one not on the page is dropped.
void addMoment(RecordingPage& page, int64_t storeID, SearchMoment moment);

}  // namespace qlm::ingest
