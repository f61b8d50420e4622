// memtool on a device where nothing runs: no memories and no broker.
#include "memtoolprocess.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace memtooltest {
namespace {

TEST(MemtoolWithoutMemories, ReadingFailsWithAClearMessage) {
    const Result get = runMemtool({"get", "MemPersistent", "AUXTorque"});
    EXPECT_EQ(get.status, 1);
    EXPECT_EQ(get.err, "memtool get: memory MemPersistent does not exist (is the settings service "
                       "running?)\n");
    EXPECT_EQ(runMemtool({"dump"}).status, 1);
    EXPECT_EQ(runMemtool({"set", "MemApp", "AppLogLevel", "Warn"}).status, 1);
}

TEST(MemtoolWithoutMemories, ListingsNeedNoMemory) {
    const Result memories = runMemtool({"memories"});
    EXPECT_EQ(memories.status, 0);
    EXPECT_NE(memories.out.find(" 0  MemPersistent         140 variables  absent\n"),
              std::string::npos)
        << memories.out;
    EXPECT_EQ(runMemtool({"vars", "MemApp"}).status, 0);
}

TEST(MemtoolWithoutMemories, NoBroker) {
    const Result post = runMemtool({"post", "1"});
    EXPECT_EQ(post.status, 1);
    EXPECT_EQ(post.err.rfind("memtool post: cannot connect to the message broker: ", 0), 0u)
        << post.err;
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

TEST(MemtoolWithoutMemories, APreviewTellsWhatLoadingWouldDoAndTouchesNothing) {
    const std::string document = "{\n\"AUXTorque\": 9,\n\"FocusTorque\": 3,\n"
                                 "\"NoSuchVariable\": 1,\n\"ProductName\": \"Other\",\n"
                                 "\"KnobColor\": \"Teal\"\n}";
    writeText("/tmp/preview.stp", document);
    const auto kmsgSize = std::filesystem::file_size("/dev/kmsg");
    const Result text = runMemtool({"preview", "/tmp/preview.stp"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_EQ(text.out, "AUXTorque: kept aside, outside 1..4\n"
                        "FocusTorque: stored\n"
                        "NoSuchVariable: kept aside, no variable of that name\n"
                        "ProductName: skipped, product information is never loaded\n"
                        "KnobColor: kept aside, Teal is not part of enum KnobColor\n"
                        "5 keys: 1 stored, 0 former name, 0 mapped entry, 0 clamped, 0 retired, "
                        "3 kept aside, 1 skipped\n");
    const Result json = runMemtool({"preview", "/tmp/preview.stp", "--json"});
    EXPECT_EQ(json.status, 0) << json.err;
    const nlohmann::json parsed = nlohmann::json::parse(json.out);
    EXPECT_TRUE(parsed["complete"]);
    EXPECT_EQ(parsed["counts"]["keptAside"], 3);
    EXPECT_EQ(parsed["keys"][0]["key"], "AUXTorque");
    EXPECT_EQ(parsed["keys"][0]["outcome"], "keptAside");
    EXPECT_EQ(parsed["keys"][0]["reason"], "outside 1..4");
    EXPECT_EQ(parsed["keys"][1]["stored"], "3");
    EXPECT_TRUE(std::filesystem::is_empty("/dev/shm"));
    EXPECT_EQ(std::filesystem::file_size("/dev/kmsg"), kmsgSize);
}

TEST(MemtoolWithoutMemories, APreviewReadsADamagedDocumentLineByLine) {
    writeText("/tmp/damaged.stp", "{\n\"FocusTorque\": 3,\n\"IrisTorque \": 4,\n\"Zoom");
    const Result result = runMemtool({"preview", "/tmp/damaged.stp"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "/tmp/damaged.stp is not a complete settings document; it is read line "
                          "by line\n"
                          "line 3 cannot be read: \"IrisTorque \": 4,\n"
                          "line 4 cannot be read: \"Zoom\n"
                          "FocusTorque: stored\n"
                          "1 keys: 1 stored, 0 former name, 0 mapped entry, 0 clamped, 0 retired, "
                          "0 kept aside, 0 skipped\n");
    writeText("/tmp/garbage.stp", "garbage");
    const Result garbage = runMemtool({"preview", "/tmp/garbage.stp"});
    EXPECT_EQ(garbage.status, 1);
    EXPECT_EQ(garbage.err, "memtool preview: /tmp/garbage.stp is not a settings document: no line "
                           "of it can be read\n");
    EXPECT_EQ(runMemtool({"preview", "/tmp/nosuch.stp"}).status, 1);
}

} // namespace
} // namespace memtooltest
