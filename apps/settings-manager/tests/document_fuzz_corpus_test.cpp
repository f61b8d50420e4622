// Runs every file of the settings-document fuzz corpus through the fuzz entry.
#include "fuzzcorpus.h"

#include <gtest/gtest.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

TEST(DocumentFuzzCorpus, EveryDocumentAppliesAndRoundTrips) {
    EXPECT_GE(testsupport::replayCorpus(DOCUMENT_FUZZ_CORPUS, LLVMFuzzerTestOneInput), 20u);
}
