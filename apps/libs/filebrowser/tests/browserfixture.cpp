#include "browserfixture.h"

#include <algorithm>
#include <ostream>

namespace fs = std::filesystem;

namespace filetest {

BrowserTest::BrowserTest()
    : root(scratch.path() / "root"), outside(scratch.path() / "outside"),
      sentinel(outside / "sentinel"),
      browser([this](float done) { progress.push_back(done); },
              [this](fs::path const& path, fs::filesystem_error const& failure) {
                  failedPaths.push_back(path);
                  failures.emplace_back(failure.what());
              }),
      workingFolder(fs::current_path()) {
    fs::create_directories(root);
    fs::create_directories(outside);
    writeFile(sentinel, "keep");
    browser.setRootPath(root.string());
}

BrowserTest::~BrowserTest() {
    fs::current_path(workingFolder);
    EXPECT_EQ(readFile(sentinel), "keep") << "the file outside the root was touched";
}

std::vector<Listed> BrowserTest::entries() const {
    std::vector<Listed> result;
    browser.ls([&result](FileBrowserBase::EntryInfo const& info) {
        result.push_back({info.name, info.index, info.type, info.isLast});
    });
    return result;
}

std::vector<std::string> BrowserTest::listed() const {
    std::vector<std::string> names;
    for (Listed const& entry : entries()) {
        names.push_back(entry.name);
    }
    return names;
}

unsigned BrowserTest::indexOf(std::string const& name) const {
    std::vector<std::string> const names = listed();
    auto const place = std::find(names.begin(), names.end(), name);
    EXPECT_NE(place, names.end()) << name << " is not listed";
    return static_cast<unsigned>(place - names.begin());
}

void BrowserTest::select(std::string const& name) {
    ASSERT_TRUE(browser.selectToggle(indexOf(name))) << name;
}

void PrintTo(Listed const& entry, std::ostream* out) {
    *out << "{\"" << entry.name << "\", " << entry.index << ", "
         << (entry.type == fs::file_type::directory ? "directory" : "regular")
         << (entry.isLast ? ", last" : "") << "}";
}

} // namespace filetest
