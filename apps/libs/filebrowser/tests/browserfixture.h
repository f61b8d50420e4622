// A navigator on a root folder in a scratch folder, with a sentinel file
// outside the root that no operation may delete, and records of every
// progress value and reported failure.
#pragma once

#include "filebrowsernavigator.h"
#include "filetestsupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

namespace filetest {

// One entry as ls delivered it.
struct Listed {
    std::string name;
    uint32_t index;
    std::filesystem::file_type type;
    bool isLast;
    bool operator==(Listed const&) const = default;
};

void PrintTo(Listed const& entry, std::ostream* out);

class BrowserTest : public ::testing::Test {
protected:
    BrowserTest();
    ~BrowserTest() override;

    // The names ls delivers, in order.
    std::vector<std::string> listed() const;
    // Every entry ls delivers.
    std::vector<Listed> entries() const;
    // Selects the listed entry of that name (fails the test if it is not listed).
    void select(std::string const& name);
    // The index of a listed name.
    unsigned indexOf(std::string const& name) const;

    ScratchFolder scratch;
    std::filesystem::path const root;
    std::filesystem::path const outside;
    std::filesystem::path const sentinel;
    std::vector<float> progress;
    std::vector<std::filesystem::path> failedPaths;
    std::vector<std::string> failures;
    FileBrowserNavigator browser;

private:
    std::filesystem::path workingFolder;
};

} // namespace filetest
