// memtool's commands for test automation and service work: values stored
// exactly as written or refused, several values per get and set, describe,
// reset, watch with values, names, help and version.
#include "memtooldevice.h"
#include "memtoolprocess.h"

#include "settings-service/memories.h"
#include "settings-service/serverconnection.h"
#include "version.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>

namespace memtooltest {
namespace {

using Json = nlohmann::ordered_json;

// True for the name of one of the tests' own ids (rawclient.h), which the
// observer's synchronising records carry.
bool isTestEvent(const Json& event) {
    for (uint32_t id = brokertest::TEST_ID_BASE;
         id < brokertest::TEST_ID_BASE + brokertest::TEST_ID_COUNT; ++id) {
        if (event == eventName(Notify{static_cast<EventId>(id), 0, 0})) {
            return true;
        }
    }
    return false;
}

std::vector<uint32_t> ids(const std::vector<Notify>& posted) {
    std::vector<uint32_t> list;
    for (const Notify& notify : posted) {
        list.push_back(notify.id);
    }
    return list;
}

class MemtoolCommands : public MemtoolDevice {};

TEST_F(MemtoolCommands, TextsTheSetterWouldReadOtherwiseAreRefused) {
    const struct {
        std::string variable;
        std::string text;
        std::string error;
    } cases[] = {
        {"DisplayBrightness", "0x2",
         "\"0x2\" is not a decimal integer: the range check would read 0 and the setter 2"},
        {"FocusTorque", "0x2", "Value must be between min: 1 and max: 4, but is: 0x2"},
        {"DisplayBrightness", "08", "only \"0\" of \"08\" would be read"},
        {"FocusTorque", "010", "Value must be between min: 1 and max: 4, but is: 010"},
        {"DisplayBrightness", "010",
         "\"010\" is not a decimal integer: the range check would read 10 and the setter 8"},
        {"FocusTorque", "3abc", "only \"3\" of \"3abc\" would be read"},
        {"FocusTorque", "1e1", "only \"1\" of \"1e1\" would be read"},
        {"FocusTorque", "3.5", "only \"3\" of \"3.5\" would be read"},
        {"CircleofConfusion", "0.05abc", "only \"0.05\" of \"0.05abc\" would be read"},
        {"CircleofConfusion", "0.0500000001",
         "a float cannot hold \"0.0500000001\" exactly: it would be stored as 0.0500000007"},
        {"BluetoothPower", "1", "Value has to be 'true' or 'false'"},
        {"CinefadeDisplayModeValue", "2", "2 is not part of enum CinefadeDisplayMode"},
        {"LensFileFavouriteFolder", std::string(400, 'f'),
         "the text has 400 characters; at most 63 fit (capacity 64 bytes with the terminator)"},
        {"MruLensFileList", "0g",
         "\"0g\" is not hexadecimal: a buffer takes two hex digits per byte"},
    };
    const std::string folder(
        reinterpret_cast<const char*>(variableAddress("MemPersistent", "LensFileFavouriteFolder")));
    for (const auto& test : cases) {
        const Result result = runMemtool({"set", "MemPersistent", test.variable, test.text});
        EXPECT_EQ(result.status, 1) << test.variable << " " << test.text;
        EXPECT_EQ(result.err, "memtool set: " + test.error + "\n");
    }
    EXPECT_EQ(readInt(variableAddress("MemPersistent", "FocusTorque")), 2);
    EXPECT_EQ(readInt(variableAddress("MemPersistent", "DisplayBrightness")), 7);
    EXPECT_EQ(*variableAddress("MemPersistent", "BluetoothPower"), 0);
    EXPECT_EQ(
        reinterpret_cast<const char*>(variableAddress("MemPersistent", "LensFileFavouriteFolder")),
        folder);
    EXPECT_EQ(variableAddress("MemPersistent", "MruLensFileList")[0], 0);
    EXPECT_TRUE(events().empty());

    EXPECT_EQ(runMemtool({"set", "MemPersistent", "FocusTorque", "4"}).status, 0);
    EXPECT_EQ(runMemtool({"set", "MemPersistent", "LensFileFavouriteFolder", std::string(63, 'f')})
                  .status,
              0);
    EXPECT_EQ(runMemtool({"set", "MemPersistent", "CircleofConfusion", "5e-2"}).status, 0);
    EXPECT_EQ(ids(events()),
              (std::vector<uint32_t>{VarFocusTorqueChanged, VarLensFileFavouriteFolderChanged,
                                     VarCircleofConfusionChanged}));
}

TEST_F(MemtoolCommands, SetSeveralChecksEveryAssignmentFirst) {
    const Result refused =
        runMemtool({"set", "MemPersistent", "AUXTorque=3", "DisplayBrightness=0x20",
                    "BluetoothPower=true", "CinefadeDisplayModeValue=filter"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err,
              "memtool set: DisplayBrightness: \"0x20\" is not a decimal integer: the range check "
              "would read 0 and the setter 32\n"
              "memtool set: CinefadeDisplayModeValue: filter is not part of enum "
              "CinefadeDisplayMode\n"
              "memtool set: nothing stored: 2 of 4 values refused\n");
    EXPECT_EQ(readInt(variableAddress("MemPersistent", "AUXTorque")), 2);
    EXPECT_EQ(*variableAddress("MemPersistent", "BluetoothPower"), 0);
    EXPECT_TRUE(events().empty());

    const Result stored = runMemtool({"set", "MemPersistent", "AUXTorque=3", "BluetoothPower=true",
                                      "LensFileFavouriteFolder=/a=b/",
                                      "RecentLensFiles[2]={\"LensFileUseCount\": 4}"});
    EXPECT_EQ(stored.status, 0) << stored.err;
    EXPECT_EQ(readInt(variableAddress("MemPersistent", "AUXTorque")), 3);
    EXPECT_EQ(*variableAddress("MemPersistent", "BluetoothPower"), 1);
    EXPECT_STREQ(
        reinterpret_cast<const char*>(variableAddress("MemPersistent", "LensFileFavouriteFolder")),
        "/a=b/");
    EXPECT_EQ(readInt(memberAddress("MemPersistent", "RecentLensFiles", 2, "LensFileUseCount")), 4);
    const std::vector<Notify> posted = events();
    EXPECT_EQ(ids(posted), (std::vector<uint32_t>{VarAUXTorqueChanged, VarBluetoothPowerChanged,
                                                  VarLensFileFavouriteFolderChanged,
                                                  VarRecentLensFilesChanged}));
    EXPECT_EQ(posted.back().index, 2u);

    const Result element = runMemtool({"set", "MemHwControl", "KnobLinearizationTable[5]=-3"});
    EXPECT_EQ(element.status, 0) << element.err;
    EXPECT_EQ(readInt(variableAddress("MemHwControl", "KnobLinearizationTable", 5)), -3);

    for (const std::vector<std::string>& wrong : std::vector<std::vector<std::string>>{
             {"set", "MemPersistent", "AUXTorque=3", "Nothing=1"},
             {"set", "MemPersistent", "AUXTorque=3", "BluetoothPower"},
             {"set", "MemPersistent", "RecentLensFiles={}"},
             {"set", "MemHwControl", "KnobLinearizationTable[512]=1"},
             {"set", "MemPersistent", "AUXTorque"}}) {
        const Result usage = runMemtool(wrong);
        EXPECT_EQ(usage.status, 2) << wrong.back();
        EXPECT_NE(usage.err.find("Usage: memtool set"), std::string::npos) << usage.err;
    }
    EXPECT_EQ(runMemtool({"set", "MemPersistent", "RecentLensFiles={}"})
                  .err.rfind("memtool set: RecentLensFiles is an array of 5: name the element as "
                             "NAME[INDEX]=VALUE\n",
                             0),
              0u);
    EXPECT_EQ(readInt(variableAddress("MemPersistent", "AUXTorque")), 3);
}

TEST_F(MemtoolCommands, GetSeveralVariables) {
    std::memcpy(variableAddress("MemHwControl", "KnobLinearizationTable", 1), "\x09\0\0\0", 4);
    const Result text = runMemtool({"get", "MemPersistent", "AUXTorque", "CinefadeDisplayModeValue",
                                    "LensFileFavouriteFolder"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_EQ(text.out, "AUXTorque=2\nCinefadeDisplayModeValue=Default\n"
                        "LensFileFavouriteFolder=/var/LENSFILES/\n");
    const Result json = runMemtool({"get", "MemPersistent", "AUXTorque", "CircleofConfusion",
                                    "BluetoothPower", "RecentLensFiles[1]", "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    const Json values = Json::parse(json.out);
    EXPECT_EQ(values["AUXTorque"], 2);
    EXPECT_FLOAT_EQ(values["CircleofConfusion"].get<float>(), 0.025f);
    EXPECT_EQ(values["BluetoothPower"], false);
    EXPECT_EQ(values["RecentLensFiles[1]"]["LensFileUseCount"]["value"], "0");
    EXPECT_EQ(runMemtool({"get", "MemHwControl", "KnobLinearizationTable[1]"}).out, "9\n");
    EXPECT_EQ(runMemtool({"get", "MemHwControl", "KnobLinearizationTable", "1"}).out, "9\n");
    const Result elements = runMemtool(
        {"get", "MemHwControl", "KnobLinearizationTable[1]", "KnobLinearizationTable[2]"});
    EXPECT_EQ(elements.out, "KnobLinearizationTable[1]=9\nKnobLinearizationTable[2]=0\n");
    EXPECT_EQ(runMemtool({"get", "0", "0", "1"}).out, "AUXTorque=2\nBluetoothPower=false\n");
    const Result unknown = runMemtool({"get", "MemPersistent", "AUXTorque", "Nothing"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.out, "");
}

TEST_F(MemtoolCommands, DescribeAVariable) {
    const Result json = runMemtool({"describe", "MemPersistent", "DisplayBrightness", "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    EXPECT_EQ(Json::parse(json.out), Json({{"memory", "MemPersistent"},
                                           {"name", "DisplayBrightness"},
                                           {"type", "int"},
                                           {"baseType", "int"},
                                           {"min", "0"},
                                           {"max", "10"},
                                           {"default", 7},
                                           {"arrayLength", nullptr},
                                           {"capacity", nullptr},
                                           {"enum", nullptr},
                                           {"event", "VarDisplayBrightnessChanged"}}));
    const Json folder = Json::parse(
        runMemtool({"describe", "MemPersistent", "LensFileFavouriteFolder", "--json"}).out);
    EXPECT_EQ(folder["capacity"], 64);
    EXPECT_EQ(folder["baseType"], "string");
    EXPECT_EQ(folder["default"], "/var/LENSFILES/");
    const Json mode = Json::parse(
        runMemtool({"describe", "MemPersistent", "CinefadeDisplayModeValue", "--json"}).out);
    EXPECT_EQ(mode["enum"], Json({"Default", "Filter", "Distance"}));
    EXPECT_EQ(mode["baseType"], "enum");
    EXPECT_TRUE(mode["min"].is_null());
    const Json files =
        Json::parse(runMemtool({"describe", "MemPersistent", "RecentLensFiles", "--json"}).out);
    EXPECT_EQ(files["arrayLength"], 5);
    EXPECT_EQ(files["baseType"], "struct");
    ASSERT_EQ(files["default"].size(), 5u);
    EXPECT_EQ(files["default"][0]["LensFileName"]["value"], "");

    const Result text = runMemtool({"describe", "MemPersistent", "DisplayBrightness"});
    EXPECT_EQ(text.out, "memory:      MemPersistent\n"
                        "name:        DisplayBrightness\n"
                        "type:        int\n"
                        "base type:   int\n"
                        "values:      0..10\n"
                        "default:     7\n"
                        "array:       -\n"
                        "capacity:    -\n"
                        "event:       VarDisplayBrightnessChanged (" +
                            std::to_string(VarDisplayBrightnessChanged) + ")\n");
    const Result buffer = runMemtool({"describe", "MemPersistent", "MruLensFileList"});
    EXPECT_NE(buffer.out.find("type:        string (a byte buffer, written in hex)\n"),
              std::string::npos)
        << buffer.out;
    EXPECT_NE(buffer.out.find("capacity:    64 bytes\n"), std::string::npos);
}

TEST_F(MemtoolCommands, ResetBringsBackTheDefaultsThroughTheSetters) {
    ASSERT_EQ(
        runMemtool({"set", "MemPersistent", "AUXTorque=4", "BluetoothPower=true",
                    "LensFileFavouriteFolder=/x/", "RecentLensFiles[3]={\"LensFileUseCount\": 2}"})
            .status,
        0);
    events();
    const Result one = runMemtool({"reset", "MemPersistent", "AUXTorque", "RecentLensFiles[3]"});
    EXPECT_EQ(one.status, 0) << one.err;
    EXPECT_EQ(readInt(variableAddress("MemPersistent", "AUXTorque")), 2);
    EXPECT_EQ(readInt(memberAddress("MemPersistent", "RecentLensFiles", 3, "LensFileUseCount")), 0);
    EXPECT_EQ(*variableAddress("MemPersistent", "BluetoothPower"), 1) << "not named";
    EXPECT_EQ(ids(events()),
              (std::vector<uint32_t>{VarAUXTorqueChanged, VarRecentLensFilesChanged}));

    const Result again = runMemtool({"reset", "MemPersistent", "AUXTorque"});
    EXPECT_EQ(again.status, 0);
    EXPECT_TRUE(events().empty()) << "a value at its default is left alone";

    ASSERT_EQ(
        runMemtool({"reset", "MemPersistent", "BluetoothPower", "LensFileFavouriteFolder"}).status,
        0);
    events();
    const Result defaults = runMemtool({"dump", "MemPersistent"});
    writeDumpFixture();
    const Result all = runMemtool({"reset", "MemPersistent", "--all"});
    EXPECT_EQ(all.status, 0) << all.err;
    const Result after = runMemtool({"dump", "MemPersistent"});
    EXPECT_TRUE(after.out == defaults.out) << "every value of the memory is its default again";
    EXPECT_EQ(ids(events()),
              (std::vector<uint32_t>{VarAUXTorqueChanged, VarBluetoothPowerChanged,
                                     VarCinefadeDisplayModeValueChanged,
                                     VarCircleofConfusionChanged, VarLensFileFavouriteFolderChanged,
                                     VarMruLensFileListChanged, VarRecentLensFilesChanged}));

    variableAddress("MemStatic", "FpgaVersion")[0] = 9;
    const Result readOnly = runMemtool({"reset", "MemStatic", "FpgaVersion"});
    EXPECT_EQ(readOnly.status, 1);
    EXPECT_EQ(readOnly.err, "memtool reset: FpgaVersion is read-only\n");
    const Result allStatic = runMemtool({"reset", "MemStatic", "--all"});
    EXPECT_EQ(allStatic.status, 0);
    EXPECT_EQ(allStatic.err, "memtool reset: FpgaVersion is read-only and keeps its value\n");
    EXPECT_EQ(variableAddress("MemStatic", "FpgaVersion")[0], 9);
    EXPECT_EQ(runMemtool({"reset", "MemPersistent"}).status, 2);
    EXPECT_EQ(runMemtool({"reset", "MemPersistent", "AUXTorque", "--all"}).status, 2);
}

TEST_F(MemtoolCommands, WatchWithValuesNamesTheVariableAndItsValue) {
    MemtoolProcess watch({"watch", "VarAUXTorqueChanged", "VarKnobLinearizationTableChanged",
                          "--values", "--count", "3", "--timeout", "60"});
    ASSERT_TRUE(watch.waitForError("memtool: watching 2 events"));
    observer->sync();
    ASSERT_EQ(runMemtool({"set", "MemPersistent", "AUXTorque", "3"}).status, 0);
    ASSERT_TRUE(watch.waitForOutput("VarAUXTorqueChanged MemPersistent.AUXTorque = 3\n"));
    ASSERT_EQ(runMemtool({"set", "MemHwControl", "KnobLinearizationTable[4]=-8"}).status, 0);
    ASSERT_TRUE(watch.waitForOutput(
        "VarKnobLinearizationTableChanged MemHwControl.KnobLinearizationTable[4] = -8\n"));
    brokertest::RawClient publisher;
    publisher.send({{VarKnobLinearizationTableChanged, 1, 600}});
    const Result result = watch.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out,
              "VarAUXTorqueChanged MemPersistent.AUXTorque = 3\n"
              "VarKnobLinearizationTableChanged MemHwControl.KnobLinearizationTable[4] = -8\n"
              "VarKnobLinearizationTableChanged MemHwControl.KnobLinearizationTable[600] = n/a\n");
}

TEST_F(MemtoolCommands, WatchValuesAsTextForAnEventOfNoVariableAndAWholeArray) {
    std::memcpy(variableAddress("MemHwControl", "KnobLinearizationTable", 1), "\x09\0\0\0", 4);
    MemtoolProcess watch({"watch", "CalibAllMotor", "VarKnobLinearizationTableChanged", "--values",
                          "--count", "2", "--timeout", "60"});
    ASSERT_TRUE(watch.waitForError("memtool: watching 2 events"));
    observer->sync();
    brokertest::RawClient publisher;
    publisher.send({{CalibAllMotor, 0, 0}, {VarKnobLinearizationTableChanged, 0, 0}});
    const Result result = watch.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    std::string elements = "[0, 9";
    for (int index = 2; index < 512; ++index) {
        elements += ", 0";
    }
    EXPECT_EQ(result.out,
              "CalibAllMotor (no variable)\n"
              "VarKnobLinearizationTableChanged MemHwControl.KnobLinearizationTable = " +
                  elements + "]\n");
}

TEST_F(MemtoolCommands, WatchValuesAsJsonForEveryEvent) {
    MemtoolProcess watch({"watch", "--values", "--json"});
    ASSERT_TRUE(watch.waitForError("memtool: watching every event"));
    observer->sync();
    ASSERT_EQ(runMemtool({"set", "MemPersistent", "CinefadeDisplayModeValue", "Filter"}).status, 0);
    const std::string mode = R"({"event":"VarCinefadeDisplayModeValueChanged","memory":)"
                             R"("MemPersistent","variable":"CinefadeDisplayModeValue",)"
                             R"("index":null,"value":"Filter"})";
    ASSERT_TRUE(watch.waitForOutput(mode + "\n"));
    brokertest::RawClient publisher;
    publisher.send({{CalibAllMotor, 0, 0}, {VarRecentLensFilesChanged, 1, 0}});
    ASSERT_TRUE(watch.waitForOutput("\"variable\":\"RecentLensFiles\""));
    watch.signal(SIGINT);
    const Result result = watch.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    std::vector<Json> lines;
    std::istringstream stream(result.out);
    for (std::string line; std::getline(stream, line);) {
        const Json record = Json::parse(line);
        EXPECT_EQ(record.size(), 5u) << line;
        if (!isTestEvent(record["event"])) {
            lines.push_back(record);
        }
    }
    ASSERT_EQ(lines.size(), 3u) << result.out;
    EXPECT_EQ(lines[0].dump(), mode);
    EXPECT_EQ(lines[1], Json({{"event", "CalibAllMotor"},
                              {"memory", nullptr},
                              {"variable", nullptr},
                              {"index", nullptr},
                              {"value", nullptr}}));
    EXPECT_EQ(lines[2]["memory"], "MemPersistent");
    EXPECT_EQ(lines[2]["index"], 0);
    EXPECT_EQ(Json::parse(lines[2]["value"].get<std::string>())["LensFileUseCount"]["value"], "0");
}

TEST_F(MemtoolCommands, RequestAlreadySetIsLeftSetWhenNotServed) {
    *variableAddress("MemUserSetups", "UserSetupAddNew") = 1;
    const Result result =
        runMemtool({"request", "MemUserSetups", "UserSetupAddNew", "--timeout", "1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "memtool request: MemUserSetups.UserSetupAddNew was not cleared within 1 "
                          "s (it was already set before; left as it is)\n");
    EXPECT_EQ(*variableAddress("MemUserSetups", "UserSetupAddNew"), 1);
}

TEST_F(MemtoolCommands, ARequestWhoseBrokerEndsIsSetBackAndSaysSo) {
    MemtoolProcess request({"request", "MemUserSetups", "UserSetupAddNew", "--timeout", "2"});
    ASSERT_TRUE(observer->receive(1, 20000).size() == 1u);
    ASSERT_EQ(broker->stop(SIGTERM), 0);
    const Result result = request.wait();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "memtool request: MemUserSetups.UserSetupAddNew was not cleared within 2 "
                          "s; memtool set the flag back to false but could not post its event: "
                          "Could not send message to server\n");
    EXPECT_EQ(*variableAddress("MemUserSetups", "UserSetupAddNew"), 0) << "set back all the same";
}

TEST_F(MemtoolCommands, InterruptedRequestIsWithdrawn) {
    MemtoolProcess request({"request", "MemUserSetups", "UserSetupAddNew", "--timeout", "60"});
    ASSERT_TRUE(observer->receive(1, 20000).size() == 1u);
    request.signal(SIGTERM);
    const Result result = request.wait();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "memtool request: interrupted before MemUserSetups.UserSetupAddNew was "
                          "cleared; memtool set the flag back to false\n");
    EXPECT_EQ(*variableAddress("MemUserSetups", "UserSetupAddNew"), 0);
}

TEST_F(MemtoolCommands, NamesForCompletion) {
    const Result memories = runMemtool({"names"});
    EXPECT_EQ(memories.out.rfind("MemPersistent\nMemDynamic\n", 0), 0u);
    EXPECT_EQ(std::count(memories.out.begin(), memories.out.end(), '\n'), 20);
    const Result variables = runMemtool({"names", "MemApp"});
    EXPECT_EQ(std::count(variables.out.begin(), variables.out.end(), '\n'), 17);
    EXPECT_EQ(runMemtool({"names", "MemPersistent", "CinefadeDisplayModeValue"}).out,
              "Default\nFilter\nDistance\n");
    EXPECT_EQ(runMemtool({"names", "MemPersistent", "BluetoothPower"}).out, "false\ntrue\n");
    EXPECT_EQ(runMemtool({"names", "MemPersistent", "AUXTorque"}).out, "");
    const Result events = runMemtool({"names", "--events"});
    EXPECT_EQ(std::count(events.out.begin(), events.out.end(), '\n'), EVENT_ID_COUNT);
    EXPECT_EQ(runMemtool({"names", "--options", "dump"}).out, "--compact\n--help\n");
    EXPECT_NE(runMemtool({"names", "--commands"}).out.find("\ndescribe\n"), std::string::npos);
}

TEST_F(MemtoolCommands, HelpAndVersion) {
    for (const char* command : {"memories", "vars", "describe", "get", "set", "reset", "dump",
                                "load", "post", "watch", "request", "names"}) {
        for (const char* help : {"--help", "-h"}) {
            const Result result = runMemtool({command, help});
            EXPECT_EQ(result.status, 0) << command;
            EXPECT_EQ(result.out.rfind(std::string("Usage: memtool ") + command, 0), 0u)
                << result.out;
        }
        EXPECT_NE(runMemtool({"-h"}).out.find(std::string("\n  memtool ") + command + " "),
                  std::string::npos)
            << command;
    }
    const Result version = runMemtool({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, std::string("memtool ") + Constants::PROJECT_VERSION + "\n");
}

} // namespace
} // namespace memtooltest
