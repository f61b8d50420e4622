#include "fuzzcorpus.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace testsupport {

std::size_t replayCorpus(const std::string& folder, FuzzEntry entry) {
    std::size_t count = 0;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        std::ifstream stream(file.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(stream),
                                      std::istreambuf_iterator<char>()};
        SCOPED_TRACE(file.path().string());
        EXPECT_EQ(entry(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), 0);
        ++count;
    }
    return count;
}

} // namespace testsupport
