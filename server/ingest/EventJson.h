#pragma once
// The JSON form of a decoded inner message, as stored and served: protobuf's JSON mapping with
// the schema's own field names and default values written out, except that a PDF's bytes are
// replaced by their size ("pdfData": {"size": N}), so no view ever inlines megabytes.
#include <google/protobuf/message.h>

#include <string>

namespace qlm::ingest {

// Throws std::runtime_error if the message cannot be printed (it can, for any decoded message).
std::string renderEventJson(const google::protobuf::Message& message);

}  // namespace qlm::ingest
