#pragma once
// A one-line human summary of a decoded inner message for the event list page, at most
// kMaxSummaryBytes of UTF-8 with control characters turned into spaces.
#include <google/protobuf/message.h>

#include <cstddef>
#include <string>

namespace qlm::ingest {

inline constexpr std::size_t kMaxSummaryBytes = 200;

std::string summarizeEvent(const google::protobuf::Message& message);

}  // namespace qlm::ingest
