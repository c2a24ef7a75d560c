#pragma once
// What recordings are found by, taken from each event as it is ingested: the words it put in front
// of someone (a screen capture's text as poppler reads it, a log line, a request's address) and
// the tags the listing filters by (users, their traits, errors). Only what the event itself holds
// is read, so whatever redaction kept out of a screen capture never reaches the index. Pure
// functions, safe from any thread.
#include <google/protobuf/message.h>

#include <cstddef>
#include <string>
#include <vector>

namespace qlm::ingest {

struct RecordingTag {
    std::string kind;   // one of the kinds below
    std::string name;   // a trait's name; empty for the other kinds
    std::string value;  // the user id or the trait's value; empty for an error

    bool operator==(const RecordingTag&) const = default;
};

inline constexpr const char* kUserTag = "user";    // an identify's userID
inline constexpr const char* kTraitTag = "trait";  // an identify's traits, its name and email among them
inline constexpr const char* kErrorTag = "error";  // an ERROR log line or a 5xx response

// Bounds that keep one event's share of the index small; longer tags are not kept at all.
inline constexpr std::size_t kMaxWordsPerEvent = 2000;
inline constexpr std::size_t kMaxTagBytes = 1024;

struct EventIndexEntry {
    std::string words;  // searchWords() of what the event showed, joined by spaces; empty when none
    std::vector<RecordingTag> tags;
};

EventIndexEntry indexEvent(const google::protobuf::Message& message);

}  // namespace qlm::ingest
