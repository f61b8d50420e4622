// memtool end to end: a process of its own in the device root, against a
// running broker and the memories that this program created.
#include "memtooldevice.h"
#include "memtoolprocess.h"

#include "settings-service/memories.h"
#include "settings-service/serverconnection.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <sstream>

namespace memtooltest {
namespace {

using Json = nlohmann::ordered_json;

class Memtool : public MemtoolDevice {};

TEST_F(Memtool, ListsTheMemories) {
    const Result text = runMemtool({"memories"});
    ASSERT_EQ(text.status, 0) << text.err;
    EXPECT_NE(text.out.find(" 0  MemPersistent         140 variables  present\n"),
              std::string::npos)
        << text.out;
    EXPECT_NE(text.out.find("19  MemApp                 17 variables  present\n"),
              std::string::npos);

    const Result json = runMemtool({"memories", "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    const Json list = Json::parse(json.out);
    ASSERT_EQ(list.size(), 20u);
    EXPECT_EQ(list[18],
              Json({{"index", 18}, {"name", "MemDebug"}, {"variables", 1}, {"present", true}}));
}

TEST_F(Memtool, ListsAMemorysVariables) {
    const Result text = runMemtool({"vars", "MemPersistent"});
    ASSERT_EQ(text.status, 0) << text.err;
    EXPECT_NE(text.out.find("AUXTorque"), std::string::npos);
    EXPECT_NE(text.out.find("1..4"), std::string::npos);
    EXPECT_NE(text.out.find("173 VarAUXTorqueChanged\n"), std::string::npos);

    const Result json = runMemtool({"vars", "0", "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    const Json list = Json::parse(json.out);
    ASSERT_EQ(list.size(), 140u);
    EXPECT_EQ(list[0], Json({{"index", 0},
                             {"name", "AUXTorque"},
                             {"type", "int"},
                             {"arrayLength", nullptr},
                             {"capacity", nullptr},
                             {"min", "1"},
                             {"max", "4"},
                             {"enum", nullptr},
                             {"event", "VarAUXTorqueChanged"},
                             {"eventId", 173}}));
    for (const Json& row : list) {
        if (row["name"] == "RecentLensFiles") {
            EXPECT_EQ(row["arrayLength"], 5);
            EXPECT_EQ(row["type"], "LensFile");
            EXPECT_TRUE(row["min"].is_null());
            EXPECT_TRUE(row["capacity"].is_null());
        }
        if (row["name"] == "LensFileFavouriteFolder") {
            EXPECT_EQ(row["capacity"], 64);
            EXPECT_TRUE(row["max"].is_null());
        }
        if (row["name"] == "CinefadeDisplayModeValue") {
            EXPECT_EQ(row["enum"], Json({"Default", "Filter", "Distance"}));
            EXPECT_TRUE(row["min"].is_null()) << "an enum's range is its names, not numbers";
            EXPECT_TRUE(row["max"].is_null());
        }
    }
    EXPECT_NE(text.out.find(" Default|Filter|Distance "), std::string::npos) << text.out;
    EXPECT_NE(text.out.find(" 63 characters "), std::string::npos);
    EXPECT_NE(text.out.find(" 64 bytes, hex "), std::string::npos);
}

TEST_F(Memtool, GetsValuesAsTextAndJson) {
    EXPECT_EQ(runMemtool({"get", "MemPersistent", "AUXTorque"}).out, "2\n");
    EXPECT_EQ(runMemtool({"get", "0", "0"}).out, "2\n");
    EXPECT_EQ(runMemtool({"get", "MemPersistent", "CircleofConfusion"}).out, "0.025000\n");
    EXPECT_EQ(runMemtool({"get", "MemPersistent", "CinefadeDisplayModeValue"}).out, "Default\n");
    EXPECT_EQ(runMemtool({"get", "MemPersistent", "LensFileFavouriteFolder", "--json"}).out,
              "\"/var/LENSFILES/\"\n");
    EXPECT_EQ(runMemtool({"get", "MemPersistent", "BluetoothPower", "--json"}).out, "false\n");

    std::memcpy(variableAddress("MemHwControl", "KnobLinearizationTable", 2), "\x07\0\0\0", 4);
    EXPECT_EQ(runMemtool({"get", "MemHwControl", "KnobLinearizationTable", "2"}).out, "7\n");
    const Result all = runMemtool({"get", "MemHwControl", "KnobLinearizationTable", "--json"});
    ASSERT_EQ(all.status, 0) << all.err;
    const Json table = Json::parse(all.out);
    ASSERT_EQ(table.size(), 512u);
    EXPECT_EQ(table[2], 7);
    const Result lines = runMemtool({"get", "MemPersistent", "RecentLensFiles"});
    EXPECT_EQ(std::count(lines.out.begin(), lines.out.end(), '\n'), 5);

    const Result element = runMemtool({"get", "MemPersistent", "RecentLensFiles", "4", "--json"});
    ASSERT_EQ(element.status, 0) << element.err;
    EXPECT_EQ(Json::parse(element.out)["LensFileUseCount"]["value"], "0");
}

TEST_F(Memtool, SetWritesThroughTheSetterAndPostsOnAChange) {
    Result result = runMemtool({"set", "MemPersistent", "AUXTorque", "3"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(readInt(variableAddress("MemPersistent", "AUXTorque")), 3);
    std::vector<Notify> posted = events();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].id, VarAUXTorqueChanged);
    EXPECT_EQ(runMemtool({"get", "MemPersistent", "AUXTorque"}).out, "3\n");

    EXPECT_EQ(runMemtool({"set", "MemPersistent", "AUXTorque", "3"}).status, 0);
    EXPECT_TRUE(events().empty()) << "an unchanged int posts nothing";

    EXPECT_EQ(
        runMemtool({"set", "MemPersistent", "LensFileFavouriteFolder", "/var/LENSFILES/"}).status,
        0);
    posted = events();
    ASSERT_EQ(posted.size(), 1u) << "a string posts after every write";
    EXPECT_EQ(posted[0].id, VarLensFileFavouriteFolderChanged);

    EXPECT_EQ(runMemtool({"set", "MemPersistent", "CinefadeDisplayModeValue", "Filter"}).status, 0);
    EXPECT_EQ(readInt(variableAddress("MemPersistent", "CinefadeDisplayModeValue")), 1);
    EXPECT_EQ(runMemtool({"set", "MemPersistent", "BluetoothPower", "true"}).status, 0);
    EXPECT_EQ(*variableAddress("MemPersistent", "BluetoothPower"), 1);
    EXPECT_EQ(runMemtool({"set", "MemPersistent", "CircleofConfusion", "0.05"}).status, 0);
    EXPECT_EQ(runMemtool({"set", "MemPersistent", "MruLensFileList", std::string(128, 'a')}).status,
              0);
    EXPECT_EQ(variableAddress("MemPersistent", "MruLensFileList")[63], 0xaa);
    posted = events();
    ASSERT_EQ(posted.size(), 4u);
    EXPECT_EQ(posted[0].id, VarCinefadeDisplayModeValueChanged);
    EXPECT_EQ(posted[1].id, VarBluetoothPowerChanged);
    EXPECT_EQ(posted[2].id, VarCircleofConfusionChanged);
    EXPECT_EQ(posted[3].id, VarMruLensFileListChanged);
}

TEST_F(Memtool, SetsArrayElementsAndStructElements) {
    EXPECT_EQ(runMemtool({"set", "MemHwControl", "KnobLinearizationTable", "3", "-42"}).status, 0);
    EXPECT_EQ(readInt(variableAddress("MemHwControl", "KnobLinearizationTable", 3)), -42);
    EXPECT_EQ(readInt(variableAddress("MemHwControl", "KnobLinearizationTable", 2)), 0);
    std::vector<Notify> posted = events();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].id, VarKnobLinearizationTableChanged);
    EXPECT_EQ(posted[0].indexed, 1u);
    EXPECT_EQ(posted[0].index, 3u);

    const Result set =
        runMemtool({"set", "MemPersistent", "RecentLensFiles", "2",
                    R"({"LensFileUseCount": 5, "LensFileName": {"value": "Tele"}})"});
    EXPECT_EQ(set.status, 0) << set.err;
    const Json element =
        Json::parse(runMemtool({"get", "MemPersistent", "RecentLensFiles", "2", "--json"}).out);
    EXPECT_EQ(element["LensFileUseCount"]["value"], "5");
    EXPECT_EQ(element["LensFileName"]["value"], "Tele");
    posted = events();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].id, VarRecentLensFilesChanged);
    EXPECT_EQ(posted[0].index, 2u);

    const Result bad = runMemtool(
        {"set", "MemPersistent", "RecentLensFiles", "1", R"({"Bogus": 1, "LensFileUseCount": 6})"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.err, "memtool set: Bogus: not a member of LensFile\n");
    EXPECT_EQ(Json::parse(runMemtool({"get", "MemPersistent", "RecentLensFiles", "1", "--json"})
                              .out)["LensFileUseCount"]["value"],
              "0")
        << "a struct with a bad member is refused whole";

    const Result noIndex = runMemtool({"set", "MemPersistent", "RecentLensFiles", "{}"});
    EXPECT_EQ(noIndex.status, 2);
    EXPECT_NE(noIndex.err.find("RecentLensFiles is an array of 5: give the element's index"),
              std::string::npos)
        << noIndex.err;
    const Result outside =
        runMemtool({"set", "MemHwControl", "KnobLinearizationTable", "512", "1"});
    EXPECT_EQ(outside.status, 2);
    EXPECT_NE(outside.err.find("the index goes from 0 to 511"), std::string::npos) << outside.err;
}

TEST_F(Memtool, RangeAndConversionErrorsFailWithoutWriting) {
    const struct {
        std::vector<std::string> arguments;
        std::string error;
    } cases[] = {
        {{"set", "MemPersistent", "AUXTorque", "9"},
         "memtool set: Value must be between min: 1 and max: 4, but is: 9\n"},
        {{"set", "MemPersistent", "AUXTorque", "abc"}, "memtool set: Can't convert \"abc\"\n"},
        {{"set", "MemPersistent", "CircleofConfusion", "0.5"},
         "memtool set: Value must be between min: 0.005 and max: 0.1, but is: 0.5\n"},
        {{"set", "MemPersistent", "BluetoothPower", "TRUE"},
         "memtool set: Value has to be 'true' or 'false'\n"},
        {{"set", "MemPersistent", "CinefadeDisplayModeValue", "filter"},
         "memtool set: filter is not part of enum CinefadeDisplayMode\n"},
        {{"set", "MemHwControl", "KnobLinearizationTable", "0", "x"},
         "memtool set: Can't convert x to int\n"},
    };
    for (const auto& test : cases) {
        const Result result = runMemtool(test.arguments);
        EXPECT_EQ(result.status, 1) << test.arguments[2];
        EXPECT_EQ(result.err, test.error);
        EXPECT_EQ(result.out, "");
    }
    EXPECT_EQ(readInt(variableAddress("MemPersistent", "AUXTorque")), 2);
    EXPECT_EQ(*variableAddress("MemPersistent", "BluetoothPower"), 0);
    EXPECT_EQ(readInt(variableAddress("MemPersistent", "CinefadeDisplayModeValue")), 0);
    EXPECT_TRUE(events().empty());
}

TEST_F(Memtool, UnknownNamesSuggestTheClosest) {
    const struct {
        std::vector<std::string> arguments;
        std::string error;
    } cases[] = {
        {{"get", "MemPersistant", "AUXTorque"},
         "memtool get: unknown memory \"MemPersistant\". Did you mean: MemPersistent?\n"},
        {{"get", "MemPersistent", "AUXTorqe"},
         "memtool get: unknown variable \"AUXTorqe\" in MemPersistent. Did you mean: AUXTorque?\n"},
        {{"set", "MemPersistent", "AppLogLevel", "1"},
         "memtool set: unknown variable \"AppLogLevel\" in MemPersistent (it is in MemApp)\n"},
        {{"post", "VarAUXTorqueChange"},
         "memtool post: unknown event \"VarAUXTorqueChange\". Did you mean: VarAUXTorqueChanged, "
         "VarDMDTorqueChanged, VarIrisTorqueChanged?\n"},
        {{"vars", "20"}, "memtool vars: no memory 20: there are 20\n"},
        {{"get", "MemPersistent", "AUXTorque", "--jsn"},
         "memtool get: unknown option --jsn. Did you mean: --json?\n"},
    };
    for (const auto& test : cases) {
        const Result result = runMemtool(test.arguments);
        EXPECT_EQ(result.status, 2) << test.arguments[1];
        EXPECT_EQ(result.err.substr(0, result.err.find("Usage: ")), test.error);
        EXPECT_NE(result.err.find("Usage: memtool " + test.arguments[0]), std::string::npos);
    }
    const Result command = runMemtool({"gett"});
    EXPECT_EQ(command.status, 2);
    EXPECT_EQ(command.err.substr(0, command.err.find('\n')),
              "memtool: unknown command \"gett\". Did you mean: get?");
}

TEST_F(Memtool, HelpOnEveryCommand) {
    for (const char* command :
         {"memories", "vars", "get", "set", "post", "watch", "dump", "request"}) {
        const Result help = runMemtool({command, "--help"});
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_EQ(help.out.rfind(std::string("Usage: memtool ") + command, 0), 0u) << help.out;
    }
    const Result general = runMemtool({"--help"});
    EXPECT_EQ(general.status, 0);
    EXPECT_NE(general.out.find("memtool request MEMORY VARIABLE"), std::string::npos);
    EXPECT_EQ(runMemtool({}).status, 2);
}

TEST_F(Memtool, PostsEventsByNameAndNumber) {
    EXPECT_EQ(runMemtool({"post", "VarFocusTorqueChanged"}).status, 0);
    EXPECT_EQ(runMemtool({"post", std::to_string(VarAUXTorqueChanged), "--index", "4"}).status, 0);
    const std::vector<Notify> posted = events();
    ASSERT_EQ(posted.size(), 2u);
    EXPECT_EQ(posted[0].id, VarFocusTorqueChanged);
    EXPECT_EQ(posted[0].indexed, 0u);
    EXPECT_EQ(posted[1].id, VarAUXTorqueChanged);
    EXPECT_EQ(posted[1].indexed, 1u);
    EXPECT_EQ(posted[1].index, 4u);
}

TEST_F(Memtool, WatchPrintsTheNamedEventsAsTheyArrive) {
    MemtoolProcess watch({"watch", "VarAUXTorqueChanged", "--count", "2", "--timeout", "60"});
    ASSERT_TRUE(watch.waitForError("memtool: watching 1 events"));
    observer->sync();
    brokertest::RawClient publisher;
    publisher.send({{VarAUXTorqueChanged, 0, 0}, {VarFocusTorqueChanged, 0, 0}});
    ASSERT_TRUE(watch.waitForOutput("VarAUXTorqueChanged 0 0\n"));
    publisher.send({{VarAUXTorqueChanged, 1, 7}});
    const Result result = watch.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "VarAUXTorqueChanged 0 0\nVarAUXTorqueChanged 1 7\n");
}

TEST_F(Memtool, WatchEverythingAsJsonUntilInterrupted) {
    MemtoolProcess watch({"watch", "--json"});
    ASSERT_TRUE(watch.waitForError("memtool: watching every event"));
    observer->sync();
    brokertest::RawClient publisher;
    publisher.send({{VarFocusTorqueChanged, 1, 3}});
    const std::string expected =
        "{\"id\":167,\"name\":\"VarFocusTorqueChanged\",\"indexed\":1,\"index\":3}\n";
    ASSERT_TRUE(watch.waitForOutput(expected));
    watch.signal(SIGINT);
    const Result result = watch.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    // Before it, the observer's synchronising records may show: events too, with the
    // tests' own ids of the event table, under their names.
    ASSERT_GE(result.out.size(), expected.size());
    EXPECT_EQ(result.out.substr(result.out.size() - expected.size()), expected);
    std::istringstream lines(result.out.substr(0, result.out.size() - expected.size()));
    for (std::string line; std::getline(lines, line);) {
        const Json sync = Json::parse(line);
        const auto id = sync["id"].get<uint32_t>();
        EXPECT_GE(id, brokertest::TEST_ID_BASE);
        EXPECT_LT(id, brokertest::TEST_ID_BASE + brokertest::TEST_ID_COUNT);
        EXPECT_EQ(sync["name"], eventName(Notify{static_cast<EventId>(id), 0, 0}));
    }
}

TEST_F(Memtool, WatchTimesOutShortOfItsCount) {
    const Result result =
        runMemtool({"watch", "VarAUXTorqueChanged", "--count", "1", "--timeout", "1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("memtool watch: timed out after 0 of 1 events\n"), std::string::npos)
        << result.err;
}

TEST_F(Memtool, SetGetPostAndWatchTogether) {
    MemtoolProcess watch({"watch", "VarAUXTorqueChanged", "--count", "1", "--timeout", "60"});
    ASSERT_TRUE(watch.waitForError("watching"));
    observer->sync();
    ASSERT_EQ(runMemtool({"set", "MemPersistent", "AUXTorque", "4"}).status, 0);
    const Result watched = watch.wait();
    EXPECT_EQ(watched.out, "VarAUXTorqueChanged 0 0\n");
    EXPECT_EQ(runMemtool({"get", "MemPersistent", "AUXTorque"}).out, "4\n");
}

TEST_F(Memtool, DumpsMemoriesAsJson) {
    const Result one = runMemtool({"dump", "MemApp", "--compact"});
    ASSERT_EQ(one.status, 0) << one.err;
    EXPECT_EQ(std::count(one.out.begin(), one.out.end(), '\n'), 1);
    const Json app = Json::parse(one.out);
    ASSERT_EQ(app.size(), 1u);
    EXPECT_EQ(app["MemApp"].size(), 17u);

    const Result all = runMemtool({"dump"});
    ASSERT_EQ(all.status, 0) << all.err;
    const Json dump = Json::parse(all.out);
    ASSERT_EQ(dump.size(), 20u);
    EXPECT_EQ(dump.begin().key(), "MemPersistent");
    const Json& persistent = dump["MemPersistent"];
    EXPECT_EQ(persistent.size(), 140u);
    EXPECT_EQ(persistent.begin().key(), "AUXTorque");
    EXPECT_EQ(persistent["AUXTorque"], 2);
    EXPECT_FLOAT_EQ(persistent["CircleofConfusion"].get<float>(), 0.025f);
    EXPECT_EQ(persistent["CinefadeDisplayModeValue"], "Default");
    EXPECT_EQ(persistent["BluetoothPower"], false);
    ASSERT_EQ(persistent["RecentLensFiles"].size(), 5u);
    EXPECT_EQ(persistent["RecentLensFiles"][0]["LensFileName"]["type"], "string");
    EXPECT_EQ(dump["MemDebug"].size(), 1u);
}

TEST_F(Memtool, RequestWaitsUntilTheServerClearsTheFlag) {
    uint8_t* flag = variableAddress("MemUserSetups", "UserSetupAddNew");
    brokertest::RawClient server;
    server.subscribe(VarUserSetupAddNewChanged);
    server.sync();
    MemtoolProcess request({"request", "MemUserSetups", "UserSetupAddNew", "--timeout", "30"});
    const std::vector<Notify> asked = server.receive(1, 20000);
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].id, VarUserSetupAddNewChanged);
    EXPECT_EQ(*flag, 1) << "the flag is set before the event is posted";
    *flag = 0;
    server.send({{VarUserSetupAddNewChanged, 0, 0}});
    const Result result = request.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(events().size(), 2u) << "the request's post and the server's";
}

TEST_F(Memtool, RequestAlreadyTrueIsPostedAgain) {
    uint8_t* flag = variableAddress("MemUserSetups", "UserSetupAddNew");
    *flag = 1;
    brokertest::RawClient server;
    server.subscribe(VarUserSetupAddNewChanged);
    server.sync();
    MemtoolProcess request({"request", "MemUserSetups", "UserSetupAddNew"});
    ASSERT_EQ(server.receive(1, 20000).size(), 1u);
    *flag = 0;
    const Result result = request.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(events().size(), 1u) << "exactly one post for the request";
}

TEST_F(Memtool, RequestNotServedTimesOut) {
    const Result result =
        runMemtool({"request", "MemUserSetups", "UserSetupAddNew", "--timeout", "1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "memtool request: MemUserSetups.UserSetupAddNew was not cleared within 1 "
                          "s; memtool set the flag back to false\n");
    EXPECT_EQ(*variableAddress("MemUserSetups", "UserSetupAddNew"), 0);
    const std::vector<Notify> posted = events();
    ASSERT_EQ(posted.size(), 2u) << "the request and its withdrawal";
    EXPECT_EQ(posted[1].id, VarUserSetupAddNewChanged);

    const Result notFlag = runMemtool({"request", "MemPersistent", "AUXTorque"});
    EXPECT_EQ(notFlag.status, 2);
    EXPECT_EQ(notFlag.err.substr(0, notFlag.err.find('\n')),
              "memtool request: MemPersistent.AUXTorque is not a request flag (a single bool)");
}

TEST_F(Memtool, WithoutABrokerOnlyTheReadingCommandsWork) {
    ASSERT_EQ(broker->stop(SIGTERM), 0);
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"post", "VarAUXTorqueChanged"},
                                               {"set", "MemPersistent", "AUXTorque", "3"},
                                               {"watch", "--timeout", "1"},
                                               {"request", "MemUserSetups", "UserSetupAddNew"}}) {
        const Result result = runMemtool(arguments);
        EXPECT_EQ(result.status, 1) << arguments[0];
        EXPECT_EQ(result.err.rfind(
                      "memtool " + arguments[0] + ": cannot connect to the message broker: ", 0),
                  0u)
            << result.err;
        EXPECT_EQ(result.err.find(".cpp:"), std::string::npos)
            << "the source location stays in the kernel log: " << result.err;
        EXPECT_TRUE(result.err.ends_with(" (is the message broker running?)\n")) << result.err;
    }
    EXPECT_EQ(readInt(variableAddress("MemPersistent", "AUXTorque")), 2) << "nothing written";
    EXPECT_EQ(*variableAddress("MemUserSetups", "UserSetupAddNew"), 0);
    EXPECT_EQ(runMemtool({"get", "MemPersistent", "AUXTorque"}).out, "2\n");
    EXPECT_EQ(runMemtool({"dump", "MemDebug"}).status, 0);
}

} // namespace
} // namespace memtooltest
