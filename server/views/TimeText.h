#pragma once
// Times as the pages and exports write them. Pure functions.
#include <string>

namespace qlm::ingest {

// Milliseconds since 1970 in UTC: "2024-03-01 12:00:00.250", or with `iso` "2024-03-01T12:00:00.250Z".
// "?" for a time that no calendar shows.
std::string utcText(double milliseconds, bool iso = false);

// A time into a session as the player's clock shows it: "1:05.3".
std::string offsetText(double milliseconds);

}  // namespace qlm::ingest
