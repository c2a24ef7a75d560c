#pragma once
// The listing's request, read from the query of "/" and "/recordings.json": the search box and the
// filters as typed (so the form and the links to further pages can say them again), what the store
// is asked from them, and the page wanted. The query is read as the listing's form sends it ('+'
// is a space). Pure functions.
//
//   q=WORDS          the search box: recordings where one event showed words beginning with each
//   app=ID           user=ID         trait=NAME=VALUE (or NAME: any value)
//   from=T  to=T     seen at some time within; T is "YYYY-MM-DD[THH:MM[:SS]]" in UTC, as a
//                    datetime-local field sends it, or milliseconds since 1970; a "to" date alone
//                    takes in the whole day
//   errors=1         only recordings with an ERROR log line or a 5xx response ("" and "0": all)
//   after=CURSOR     the page after the one that named this cursor     limit=N (1 to 200, 50)
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "server/store/RecordingStore.h"

namespace qlm::ingest {

inline constexpr std::size_t kMaxQueryWords = 16;
inline constexpr std::size_t kDefaultListingPage = 50;
inline constexpr std::size_t kLargestListingPage = 200;

struct ListingQuery {
    std::string text, appID, userID, trait, from, to;  // as typed
    bool withErrors = false;
    RecordingFilter filter;
    std::optional<RecordingCursor> after;
    std::size_t limit = kDefaultListingPage;

    // The search box holds text but no word: nothing can match it.
    bool matchesNothing() const { return !text.empty() && filter.words.empty(); }
};

// The query, or what is wrong with it.
std::variant<ListingQuery, std::string> parseListingQuery(std::string_view rawQuery);

// "?q=...&app=..." for the same filters (no limit), with `after` when given; "" when nothing is set.
std::string listingQueryString(const ListingQuery& query,
                               std::optional<RecordingCursor> after = std::nullopt);

// The cursor as the "after" parameter writes it, and back; nullopt for a text no cursor gives.
std::string cursorText(const RecordingCursor& cursor);
std::optional<RecordingCursor> parseCursor(std::string_view text);

}  // namespace qlm::ingest
