// Runs every file of the reader's fuzz corpus through the fuzz entry.
#include "fuzzcorpus.h"

#include <gtest/gtest.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

TEST(JsonFuzzCorpus, EveryInputParsesConsistently) {
    EXPECT_GE(testsupport::replayCorpus(JSON_FUZZ_CORPUS, LLVMFuzzerTestOneInput), 20u);
}
