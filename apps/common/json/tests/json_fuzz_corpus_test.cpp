// Runs every file of the reader's fuzz corpus through the fuzz entry.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

TEST(JsonFuzzCorpus, EveryInputParsesConsistently) {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(JSON_FUZZ_CORPUS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file),
                                      std::istreambuf_iterator<char>()};
        SCOPED_TRACE(entry.path().string());
        EXPECT_EQ(
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()),
            0);
        ++count;
    }
    EXPECT_GE(count, 20u);
}
