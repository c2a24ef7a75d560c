#pragma once
// The listing at "/": the search box and filters, then a page of recordings, most recently seen
// first, each with the moments that matched the search, which open the replay there. A document
// without scripts, like the server's other pages. Pure functions.
#include <string>
#include <string_view>

#include "server/search/ListingQuery.h"
#include "server/store/RecordingStore.h"

namespace qlm::ingest {

std::string recordingListPage(const ListingQuery& query, const RecordingPage& page);

// What a matched event was: "screen", "log", "network" (or its type for anything else).
std::string momentKind(std::string_view type);

// The replay of `key` at the moment, and the query that found it: "/APP/s/REC/N#at=MS&q=TEXT".
std::string momentLink(const RecordingKey& key, const SearchMoment& moment, const std::string& queryText);

}  // namespace qlm::ingest
