// Decoding without a server. Saved fuzz inputs are replayed through what uploads go through: each
// saved regression must be refused without crashing, and each seed of the fuzz corpus accepted,
// so the seeds keep reaching deep into the decoder. Then the percent-decoding of queries and paths.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "fuzz/IngestFuzzInput.h"
#include "server/http/QueryString.h"
#include "server/ingest/IngestRequest.h"
#include "server/ingest/InnerMessage.h"

namespace qlm::ingest {
namespace {

namespace fs = std::filesystem;

// Every saved input in `folder` (under the repository), decoded as the upload it stands for.
std::vector<std::pair<std::string, IngestDecoding>> decodeEachIn(const std::string& folder) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(fs::path(QLM_SOURCE_DIR) / folder))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    std::vector<std::pair<std::string, IngestDecoding>> decoded;
    for (const auto& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const auto input = qlm_fuzz::splitIngestFuzzInput(data);
        decoded.emplace_back(file.filename().string(), decodeIngestRequest(input.query, input.body));
    }
    return decoded;
}

TEST(FuzzRegressionTest, EverySavedRegressionIsRefused) {
    const auto decoded = decodeEachIn("tests/fuzz-regressions/ingest");
    ASSERT_FALSE(decoded.empty());
    for (const auto& [name, decoding] : decoded) {
        EXPECT_FALSE(decoding.batch) << name << " was accepted";
        EXPECT_FALSE(decoding.error.empty()) << name;
    }
}

TEST(FuzzRegressionTest, EverySeedIsAcceptedWithWellFormedEvents) {
    const auto decoded = decodeEachIn("fuzz/corpus/ingest");
    ASSERT_FALSE(decoded.empty());
    const auto& known = knownEventTypes();
    for (const auto& [name, decoding] : decoded) {
        ASSERT_TRUE(decoding.batch) << name << ": " << decoding.error;
        EXPECT_FALSE(decoding.batch->events.empty()) << name;
        for (const DecodedEvent& event : decoding.batch->events) {
            EXPECT_NE(std::find(known.begin(), known.end(), event.type), known.end()) << name;
            EXPECT_TRUE(nlohmann::json::accept(event.json)) << name << ": " << event.json;
        }
    }
}

struct Decoding {
    const char* raw;
    std::optional<std::string> decoded;
};

class PercentDecodeTest : public testing::TestWithParam<Decoding> {};

TEST_P(PercentDecodeTest, DecodesOrRefuses) {
    EXPECT_EQ(percentDecode(GetParam().raw), GetParam().decoded) << GetParam().raw;
}

// '+' stays itself: these are paths and query values, not form bodies.
INSTANTIATE_TEST_SUITE_P(Table, PercentDecodeTest,
                         testing::Values(Decoding{"a%20b", "a b"}, Decoding{"a+b", "a+b"},
                                         Decoding{"%2F%2f", "//"}, Decoding{"%", std::nullopt},
                                         Decoding{"ab%4", std::nullopt}, Decoding{"%g0", std::nullopt},
                                         Decoding{"%0g", std::nullopt}));

TEST(PercentEncodeTest, RoundTripsEveryByteLeavingNoDelimiter) {
    std::string all;
    for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
    const std::string encoded = percentEncode(all);
    EXPECT_EQ(encoded.find_first_of("/?#&=+ \"<>'"), std::string::npos);
    EXPECT_EQ(percentDecode(encoded), all);
}

}  // namespace
}  // namespace qlm::ingest
