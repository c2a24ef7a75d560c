#pragma once
// A failure of the database underneath RecordingStore (disk full, a locked or corrupt file).
#include <stdexcept>
#include <string>

namespace qlm::ingest {

class StoreError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace qlm::ingest
