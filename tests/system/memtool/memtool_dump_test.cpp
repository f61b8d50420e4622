// memtool dump and load: the dump of a fixed state is byte for byte the copy
// of the earlier, whole-document implementation's output kept beside this
// file; loading the dump of an unchanged unit changes no byte and posts
// nothing; a load checks every value before it stores any.
#include "memtooldevice.h"
#include "memtoolprocess.h"

#include "settings-service/catalogue.h"
#include "settings-service/memories.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace memtooltest {
namespace {

// The content of a gzip-compressed file of this folder.
std::string keptCopy(const std::string& name) {
    const std::string command = "gzip -dc " + std::string(MEMTOOL_TEST_DATA) + "/" + name;
    FILE* pipe = ::popen(command.c_str(), "r");
    EXPECT_NE(pipe, nullptr) << command;
    std::string text;
    char chunk[1 << 16];
    for (size_t got; pipe != nullptr && (got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0;) {
        text.append(chunk, got);
    }
    EXPECT_EQ(pipe == nullptr ? -1 : ::pclose(pipe), 0) << command;
    return text;
}

// Equal texts, or where they part (a 4 MB text is not worth printing whole).
testing::AssertionResult sameText(const std::string& actual, const std::string& expected) {
    if (actual == expected) {
        return testing::AssertionSuccess();
    }
    const auto [a, e] =
        std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    const size_t at = static_cast<size_t>(a - actual.begin());
    const size_t from = at < 200 ? 0 : at - 200;
    return testing::AssertionFailure()
           << "sizes " << actual.size() << " and " << expected.size() << "; first difference at "
           << at << ":\nactual:   ..." << actual.substr(from, 300) << "\nexpected: ..."
           << expected.substr(from, 300);
}

// Every byte of every memory.
std::vector<std::vector<uint8_t>> memoryBytes() {
    std::vector<std::vector<uint8_t>> all;
    for (uint32_t memory = 0; memory < MEMORY_ARRAY_SIZE; ++memory) {
        SharedMemory& segment = gen::getSharedMemory(memory);
        all.emplace_back(segment.address(), segment.address() + segment.getSize());
    }
    return all;
}

std::string writeFile(const std::string& name, const std::string& text) {
    const std::string path = "/tmp/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

class MemtoolDump : public MemtoolDevice {};

TEST_F(MemtoolDump, TheDumpOfAFixedStateIsTheKeptCopyByteForByte) {
    writeDumpFixture();
    const Result pretty = runMemtool({"dump"});
    ASSERT_EQ(pretty.status, 0) << pretty.err;
    EXPECT_TRUE(sameText(pretty.out, keptCopy("dump-fixture.json.gz")));
    const Result compact = runMemtool({"dump", "--compact"});
    ASSERT_EQ(compact.status, 0) << compact.err;
    EXPECT_TRUE(sameText(compact.out, keptCopy("dump-fixture-compact.json.gz")));
}

TEST_F(MemtoolDump, NamedMemoriesInTheirOrderAndOnce) {
    const Result two = runMemtool({"dump", "MemApp", "MemDebug", "MemApp", "--compact"});
    ASSERT_EQ(two.status, 0) << two.err;
    EXPECT_EQ(two.out.rfind("{\"MemApp\":{\"AppLogLevel\":", 0), 0u) << two.out;
    EXPECT_NE(two.out.find("},\"MemDebug\":{"), std::string::npos);
    EXPECT_EQ(two.out.find("MemApp", 3), std::string::npos) << "MemApp is written once";
    EXPECT_EQ(two.out.back(), '\n');
}

TEST_F(MemtoolDump, LoadingTheDumpOfAnUnchangedUnitChangesNoByteAndPostsNothing) {
    writeDumpFixture();
    const Result dump = runMemtool({"dump"});
    ASSERT_EQ(dump.status, 0) << dump.err;
    const std::string path = writeFile("unchanged.json", dump.out);
    const auto before = memoryBytes();
    const Result load = runMemtool({"load", path});
    EXPECT_EQ(load.status, 0) << load.err;
    EXPECT_EQ(load.out, "");
    EXPECT_TRUE(memoryBytes() == before) << "a byte changed";
    EXPECT_TRUE(events().empty());
    const Result dry = runMemtool({"load", path, "--dry-run"});
    EXPECT_EQ(dry.status, 0) << dry.err;
    EXPECT_EQ(dry.out, "") << "nothing would be stored";
}

TEST_F(MemtoolDump, LoadStoresTheChangedValuesThroughTheSetters) {
    const std::string path = writeFile(
        "some.json", R"({
  "MemPersistent": {
    "AUXTorque": 3,
    "BluetoothPower": false,
    "CircleofConfusion": 0.05,
    "CinefadeDisplayModeValue": "Filter",
    "LensFileFavouriteFolder": "/var/LENS \"A\"/",
    "RecentLensFiles": [{}, {"LensFileUseCount": {"value": "9"}}, {}, {}, {}]
  },
  "MemHwControl": {"KnobLinearizationTable": [)" +
                         [] {
                             std::string elements;
                             for (int i = 0; i < 512; ++i) {
                                 elements += (i ? "," : "") + std::to_string(i == 3 ? -5 : 0);
                             }
                             return elements;
                         }() +
                         "]}}");
    const Result dry = runMemtool({"load", path, "--dry-run"});
    ASSERT_EQ(dry.status, 0) << dry.err;
    EXPECT_EQ(dry.out, "MemPersistent AUXTorque=3\n"
                       "MemPersistent CircleofConfusion=0.05\n"
                       "MemPersistent CinefadeDisplayModeValue=Filter\n"
                       "MemPersistent LensFileFavouriteFolder=/var/LENS \"A\"/\n"
                       "MemPersistent RecentLensFiles[1]={\"LensFileUseCount\":{\"value\":\"9\"}}\n"
                       "MemHwControl KnobLinearizationTable[3]=-5\n")
        << "BluetoothPower is false already; the empty struct elements ask for nothing";
    EXPECT_TRUE(events().empty()) << "a dry run stores nothing";

    const Result load = runMemtool({"load", path});
    ASSERT_EQ(load.status, 0) << load.err;
    EXPECT_EQ(readInt(variableAddress("MemPersistent", "AUXTorque")), 3);
    EXPECT_EQ(readInt(variableAddress("MemHwControl", "KnobLinearizationTable", 3)), -5);
    EXPECT_STREQ(
        reinterpret_cast<const char*>(variableAddress("MemPersistent", "LensFileFavouriteFolder")),
        "/var/LENS \"A\"/");
    std::vector<EventId> posted;
    for (const Notify& notify : events()) {
        posted.push_back(static_cast<EventId>(notify.id));
    }
    EXPECT_EQ(posted, (std::vector<EventId>{
                          VarAUXTorqueChanged, VarCircleofConfusionChanged,
                          VarCinefadeDisplayModeValueChanged, VarLensFileFavouriteFolderChanged,
                          VarRecentLensFilesChanged, VarKnobLinearizationTableChanged}));
}

TEST_F(MemtoolDump, LoadReadsStandardInput) {
    const std::string path = writeFile("input.json", R"({"MemPersistent": {"AUXTorque": 4}})");
    const Result load = runMemtoolReading({"load", "-"}, path);
    EXPECT_EQ(load.status, 0) << load.err;
    EXPECT_EQ(readInt(variableAddress("MemPersistent", "AUXTorque")), 4);
    const Result bad = runMemtoolReading({"load", "-"}, writeFile("input.json", "{"));
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.err.rfind("memtool load: standard input is not valid JSON: ", 0), 0u) << bad.err;
}

TEST_F(MemtoolDump, ABadValueAnywhereListsEveryProblemAndStoresNothing) {
    const std::string path = writeFile("bad.json", R"({
  "MemPersistent": {
    "AUXTorque": 3,
    "DisplayBrightness": 11,
    "ButtonBrightness": 5.5,
    "LensFileFavouriteFolder": ")" + std::string(64, 'x') +
                                                       R"(",
    "Bogus": 1,
    "CinefadeDisplayModeValue": "filter"
  },
  "MemNothing": {"A": 1},
  "MemHwControl": {"KnobLinearizationTable": [1, 2]}
})");
    const auto before = memoryBytes();
    const Result load = runMemtool({"load", path});
    EXPECT_EQ(load.status, 1);
    EXPECT_EQ(load.out, "");
    EXPECT_EQ(
        load.err,
        "memtool load: MemPersistent.DisplayBrightness: Value must be between min: 0 and max: "
        "10, but is: 11\n"
        "memtool load: MemPersistent.ButtonBrightness: 5.5 is not a value of type int\n"
        "memtool load: MemPersistent.LensFileFavouriteFolder: the text has 64 characters; at most "
        "63 fit (capacity 64 bytes with the terminator)\n"
        "memtool load: unknown variable \"Bogus\" in MemPersistent\n"
        "memtool load: MemPersistent.CinefadeDisplayModeValue: filter is not part of enum "
        "CinefadeDisplayMode\n"
        "memtool load: unknown memory \"MemNothing\"\n"
        "memtool load: MemHwControl.KnobLinearizationTable: expects an array of 512 elements\n"
        "memtool load: nothing stored: 7 of 8 values refused\n");
    EXPECT_TRUE(memoryBytes() == before);
    EXPECT_TRUE(events().empty());
}

TEST_F(MemtoolDump, LoadRefusesWhatIsNotADump) {
    const struct {
        std::string text;
        std::string error;
    } cases[] = {
        {"[1, 2]",
         "memtool load: /tmp/notadump.json is not a dump of memories: not a JSON object\n"},
        {"{\"MemApp\": 3}",
         "memtool load: /tmp/notadump.json: MemApp is not an object of variables\n"},
        {"{\"MemApp\": {\"AppLogLevel\": ", ""},
    };
    for (const auto& test : cases) {
        const std::string path = writeFile("notadump.json", test.text);
        const Result load = runMemtool({"load", path});
        EXPECT_EQ(load.status, 1) << test.text;
        if (test.error.empty()) {
            EXPECT_EQ(load.err.rfind("memtool load: /tmp/notadump.json is not valid JSON: ", 0), 0u)
                << load.err;
        } else {
            EXPECT_EQ(load.err, test.error);
        }
    }
    const Result missing = runMemtool({"load", "/tmp/none.json"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "memtool load: cannot open /tmp/none.json\n");
    EXPECT_TRUE(events().empty());
}

} // namespace
} // namespace memtooltest
