#pragma once
// How one fuzz input stands for one upload: the query string (as after '?'), a newline, then the
// body. Shared by the fuzz target and the test that replays saved inputs.
#include <string_view>

namespace qlm_fuzz {

struct IngestFuzzInput {
    std::string_view query;
    std::string_view body;
};

inline IngestFuzzInput splitIngestFuzzInput(std::string_view data) {
    const std::size_t newline = data.find('\n');
    if (newline == std::string_view::npos) return {data, {}};
    return {data.substr(0, newline), data.substr(newline + 1)};
}

}  // namespace qlm_fuzz
