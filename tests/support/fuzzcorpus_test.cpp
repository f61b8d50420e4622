// Runs every file of a fuzz corpus (the folder FUZZ_CORPUS, at least
// FUZZ_CORPUS_MINIMUM files) through the fuzz entry it is linked with; a
// failed check in the entry aborts the test.  Built by sm_add_fuzzer.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

TEST(FuzzCorpus, EveryInputRuns) {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(FUZZ_CORPUS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file),
                                      std::istreambuf_iterator<char>()};
        SCOPED_TRACE(entry.path().string());
        EXPECT_EQ(
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()),
            0);
        ++count;
    }
    EXPECT_GE(count, static_cast<size_t>(FUZZ_CORPUS_MINIMUM));
}
