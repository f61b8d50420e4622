// ".current.stp.kept": what ".current.stp" held and this release did not store
// as it stood, kept at start, applied again when it can be stored, dropped
// when the user set its variable, removed by a factory reset; the user
// setups keep nothing aside.
#include "keptsettings.h"
#include "kmsgcapture.h"
#include "logline.h"
#include "servicefixture.h"
#include "settings-service/records.h"

#include <chrono>
#include <filesystem>
#include <sstream>

using namespace servicetest;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::string KEPT = std::string(SETUPS) + ".current.stp.kept";

// A whole settings document of the defaults with the given lines put first.
std::string documentWith(const std::string& lines, const std::string& without = "") {
    std::string document;
    std::istringstream defaults(readFile(CURRENT));
    std::string line;
    bool first = true;
    while (std::getline(defaults, line)) {
        if (!without.empty() && line.rfind("\"" + without + "\": ", 0) == 0) {
            continue;
        }
        document += line + "\n";
        if (first && !lines.empty()) {
            document += lines;
            first = false;
        }
    }
    document.pop_back();
    return document;
}

} // namespace

class KeptTest : public ServiceTest {
protected:
    // A unit that has run once and stopped: ".current.stp" holds the defaults.
    void SetUp() override {
        ServiceTest::SetUp();
        ASSERT_TRUE(service->init());
        stop();
    }

    // Stops the service (it saves ".current.stp" as it ends).
    void stop() { service.reset(); }

    // Starts the service on the folder as it is.
    void restart() {
        startService();
        ASSERT_TRUE(service->init());
    }
};

TEST_F(KeptTest, AtStartWhatTheCurrentFileHeldAndCouldNotBeStoredIsKeptAside) {
    writeFile(CURRENT, documentWith("\"NoSuchVariable\": [1, 2],\n\"AUXTorque\": 9,\n"
                                    "\"KnobColor\": \"Teal\",\n",
                                    "AUXTorque"));
    testsupport::KmsgCapture log;
    restart();
    EXPECT_EQ(gen::memPersistent().AUXTorque, 2);
    EXPECT_EQ(readFile(KEPT), "{\n"
                              "\"NoSuchVariable\": {\"value\": \"\\u005b1, 2\\u005d\"},\n"
                              "\"AUXTorque\": {\"value\": \"9\", \"instead\": \"2\"},\n"
                              "\"KnobColor\": {\"value\": \"Teal\", \"instead\": \"White\"}\n"
                              "}");
    const std::vector<std::string> texts = messages(log.lines());
    EXPECT_THAT(texts, Contains("NoSuchVariable: kept aside, no variable of that name"));
    EXPECT_THAT(texts, Contains("AUXTorque: kept aside, outside 1..4"));
    EXPECT_THAT(texts, Contains("KnobColor: kept aside, Teal is not part of enum KnobColor"));
}

TEST_F(KeptTest, WhatThisReleaseCannotStoreStaysThroughLaterStarts) {
    writeFile(CURRENT, documentWith("\"NoSuchVariable\": \"a \\u0022b\\u0022 [c]\",\n"
                                    "\"AUXTorque\": 9,\n",
                                    "AUXTorque"));
    restart();
    const std::string kept = readFile(KEPT);
    stop();
    restart();
    stop();
    restart();
    EXPECT_EQ(readFile(KEPT), kept);
    EXPECT_THAT(kept, HasSubstr("\"NoSuchVariable\": {\"value\": "
                                "\"a \\u005cu0022b\\u005cu0022 \\u005bc\\u005d\"}"));
    EXPECT_THAT(readFile(CURRENT), Not(HasSubstr("NoSuchVariable")));
}

TEST_F(KeptTest, AKeptValueComesBackWhenTheCurrentFileGaveItsVariableNoValue) {
    writeFile(CURRENT, documentWith("", "FocusTorque"));
    writeFile(KEPT,
              "{\n\"FocusTorque\": {\"value\": \"3\"},\n\"Elsewhere\": {\"value\": \"1\"}\n}");
    testsupport::KmsgCapture log;
    restart();
    EXPECT_EQ(gen::memPersistent().FocusTorque, 3);
    EXPECT_THAT(messages(log.lines()), Contains("FocusTorque: the value kept aside is stored "
                                                "again: 3"));
    EXPECT_EQ(readFile(KEPT), "{\n\"Elsewhere\": {\"value\": \"1\"}\n}");
    // Stored again, it is part of the current settings at once.
    EXPECT_THAT(readFile(CURRENT), HasSubstr("\"FocusTorque\": 3,\n"));
}

TEST_F(KeptTest, AKeptValueComesBackWhileItsVariableHoldsTheValueRecordedInstead) {
    writeFile(KEPT, "{\n\"FocusTorque\": {\"value\": \"4\", \"instead\": \"2\"}\n}");
    restart();
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
    EXPECT_FALSE(exists(KEPT));
}

TEST_F(KeptTest, AKeptValueGivesWayToAValueSetSince) {
    writeFile(CURRENT, documentWith("\"FocusTorque\": 3,\n", "FocusTorque"));
    writeFile(KEPT, "{\n\"FocusTorque\": {\"value\": \"4\", \"instead\": \"2\"},\n"
                    "\"IrisTorque\": {\"value\": \"4\"}\n}");
    testsupport::KmsgCapture log;
    restart();
    EXPECT_EQ(gen::memPersistent().FocusTorque, 3);
    EXPECT_EQ(gen::memPersistent().IrisTorque, 2);
    EXPECT_FALSE(exists(KEPT));
    EXPECT_THAT(messages(log.lines()),
                Contains("FocusTorque: the value kept aside gives way to the value set since"));
}

TEST_F(KeptTest, AKeptValueThatWouldBeRefusedOrClampedStays) {
    const std::string kept = "{\n\"AUXTorque\": {\"value\": \"9\", \"instead\": \"2\"},\n"
                             "\"KnobLock\": {\"value\": \"maybe\"}\n}";
    writeFile(CURRENT, documentWith("", "KnobLock"));
    writeFile(KEPT, kept);
    restart();
    EXPECT_EQ(gen::memPersistent().AUXTorque, 2);
    EXPECT_FALSE(gen::memPersistent().KnobLock);
    EXPECT_EQ(readFile(KEPT), kept);
}

TEST_F(KeptTest, TheUserSettingAVariableDropsWhatWasKeptForIt) {
    writeFile(CURRENT, documentWith("\"AUXTorque\": 9,\n\"NoSuchVariable\": 1,\n", "AUXTorque"));
    restart();
    ASSERT_THAT(readFile(KEPT), HasSubstr("AUXTorque"));
    gen::memPersistent().AUXTorque = 3;
    service->handleEvent(Notify{VarAUXTorqueChanged, 0, 0});
    ASSERT_TRUE(service->isDirty());
    service->storeToMemory(".current");
    EXPECT_EQ(readFile(KEPT), "{\n\"NoSuchVariable\": {\"value\": \"1\"}\n}");
}

TEST_F(KeptTest, AChangeBelowTheServicesLogLevelStillDropsWhatWasKeptForIt) {
    writeFile(CURRENT, documentWith("\"AUXTorque\": 9,\n\"NoSuchVariable\": 1,\n", "AUXTorque"));
    restart();
    ASSERT_THAT(readFile(KEPT), HasSubstr("AUXTorque"));
    gen::memApp().AppSettingsManagerLogLevel = gen::Warn;
    testsupport::KmsgCapture log;
    gen::memPersistent().AUXTorque = 3;
    service->handleEvent(Notify{VarAUXTorqueChanged, 0, 0});
    EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("AUXTorque changed to"))));
    service->storeToMemory(".current");
    EXPECT_EQ(readFile(KEPT), "{\n\"NoSuchVariable\": {\"value\": \"1\"}\n}");
}

TEST_F(KeptTest, AUserSetupKeepsNothingAsideAndDropsWhatWasKeptForWhatItStored) {
    writeFile(CURRENT, documentWith("\"AUXTorque\": 9,\n\"NoSuchVariable\": 1,\n", "AUXTorque"));
    restart();
    writeFile(std::string(SETUPS) + "Studio.stp",
              "{\"AUXTorque\": 4, \"Unknown\": 2, \"IrisTorque\": 8}");
    EXPECT_TRUE(service->loadSetting("Studio.stp", true));
    EXPECT_EQ(gen::memPersistent().AUXTorque, 4);
    EXPECT_EQ(readFile(KEPT), "{\n\"NoSuchVariable\": {\"value\": \"1\"}\n}");
    EXPECT_EQ(readFile(std::string(SETUPS) + "Studio.stp"),
              "{\"AUXTorque\": 4, \"Unknown\": 2, \"IrisTorque\": 8}");
}

TEST_F(KeptTest, AFactoryResetRemovesWhatWasKept) {
    writeFile(CURRENT, documentWith("\"NoSuchVariable\": 1,\n"));
    restart();
    ASSERT_TRUE(exists(KEPT));
    gen::memGuiLocal().FactoryReset = true;
    service->handleEvent(Notify{VarFactoryResetChanged, 0, 0});
    service->storeToMemory(".current");
    EXPECT_FALSE(exists(KEPT));
    stop();
    restart();
    EXPECT_FALSE(exists(KEPT));
}

TEST_F(KeptTest, ADamagedKeptFileIsReadLineByLine) {
    writeFile(CURRENT, documentWith("", "FocusTorque"));
    writeFile(KEPT, "{\n\"FocusTorque\": {\"value\": \"4\"},\n\"Broken\" {\"value\": \"1\"},\n"
                    "\"Elsewhere\": {\"value\": \"1\"},\n\"Cut\": {\"val");
    testsupport::KmsgCapture log;
    restart();
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
    EXPECT_EQ(readFile(KEPT), "{\n\"Elsewhere\": {\"value\": \"1\"}\n}");
    EXPECT_THAT(messages(log.lines()),
                Contains(".current.stp.kept is damaged: 2 entries read, 2 lines could not be "
                         "read"));
}

TEST_F(KeptTest, TheKeptFileIsNeitherListedNorWrittenWhenNothingChanges) {
    writeFile(CURRENT, documentWith("\"NoSuchVariable\": 1,\n"));
    restart();
    const auto written = std::filesystem::last_write_time(KEPT);
    std::filesystem::last_write_time(KEPT, written - std::chrono::hours(1));
    gen::memPersistent().IrisTorque = 3;
    service->handleEvent(Notify{VarIrisTorqueChanged, 0, 0});
    service->storeToMemory(".current");
    EXPECT_EQ(std::filesystem::last_write_time(KEPT), written - std::chrono::hours(1));
    EXPECT_EQ(gen::memUserSetups().UserSetupListSize, 0);
}
