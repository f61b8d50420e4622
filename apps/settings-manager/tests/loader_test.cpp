// Loading settings documents into MemPersistent: the unsubscribe/subscribe
// bracket, skipped keys, range checks, setter errors, parse errors, struct
// arrays, missing files, the defaults and the factory reset.
#include "kmsgcapture.h"
#include "logline.h"
#include "productinfo.h"
#include "servicefixture.h"
#include "settings-service/introspection.h"
#include "settings-service/records.h"
#include "settingsfolder.h"
#include "settingsloader.h"
#include "settingsstore.h"

#include <filesystem>
#include <sstream>
#include <stdexcept>

using namespace servicetest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::stringstream document(const std::string& text) {
    return std::stringstream(text);
}

} // namespace

class LoaderTest : public ServiceTest {};

TEST_F(LoaderTest, EmptyObjectUnsubscribesResubscribesAndSucceeds) {
    auto text = document("{}");
    EXPECT_TRUE(service->parseJsonStringStreamAndSetValues(text));
    const std::vector<Notify> records = posted();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.front().id, UnsubscribeAll);
    EXPECT_TRUE(isSubscriptionSequence({records.begin() + 1, records.end()}));
}

TEST_F(LoaderTest, ValuesAreStoredInsideTheBracketAndPosted) {
    auto text = document("{\n\"AUXTorque\": 3,\n\"KnobLock\": true,\n"
                         "\"CinefadeDisplayModeValue\": \"Filter\"\n}");
    EXPECT_TRUE(service->parseJsonStringStreamAndSetValues(text));
    EXPECT_EQ(gen::memPersistent().AUXTorque, 3);
    EXPECT_TRUE(gen::memPersistent().KnobLock);
    EXPECT_EQ(gen::memPersistent().CinefadeDisplayModeValue, 1u);
    const std::vector<EventId> order = ids(posted());
    ASSERT_GE(order.size(), 4u);
    EXPECT_THAT(std::vector<EventId>(order.begin(), order.begin() + 4),
                ElementsAre(UnsubscribeAll, VarAUXTorqueChanged, VarKnobLockChanged,
                            VarCinefadeDisplayModeValueChanged));
    EXPECT_EQ(order[4], Subscribe);
}

TEST_F(LoaderTest, ProductKeysAreNeverLoaded) {
    service->writeProductInfo();
    const std::string name = gen::memPersistent().ProductName.data();
    const std::string version = gen::memPersistent().ProductVersion.data();
    auto text = document("{\"ProductName\": \"Other board\", \"ProductVersion\": \"9.9\", "
                         "\"ProductSomething\": 1}");
    EXPECT_TRUE(service->parseJsonStringStreamAndSetValues(text));
    EXPECT_EQ(gen::memPersistent().ProductName.data(), name);
    EXPECT_EQ(gen::memPersistent().ProductVersion.data(), version);
}

TEST_F(LoaderTest, ValueOutOfRangeIsLoggedAndSkippedWithoutFailingTheLoad) {
    testsupport::KmsgCapture log;
    auto text = document("{\"AUXTorque\": 9, \"FocusTorque\": 3}");
    EXPECT_TRUE(service->parseJsonStringStreamAndSetValues(text));
    EXPECT_EQ(gen::memPersistent().AUXTorque, 2);
    EXPECT_EQ(gen::memPersistent().FocusTorque, 3);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Error, "settingsloader.cpp",
                                       "The value of variable: AUXTorque is out of range!"));
    EXPECT_TRUE(testsupport::isLogLine(lines[1], gen::Error, "settingsloader.cpp",
                                       "Value must be between min: 1 and max: 4, but is: 9"));
    EXPECT_TRUE(testsupport::isLogLine(lines[2], gen::Warn, "settingsloader.cpp",
                                       "AUXTorque: kept aside, outside 1..4"));
}

TEST_F(LoaderTest, AnIntIsRangeCheckedAsTheNumberTheSetterStores) {
    testsupport::KmsgCapture log;
    auto text = document("{\"RadioPower\": 08, \"LastKnownFocusValue\": 0x7fffffff, "
                         "\"FocusTorque\": 0x3, \"ZoomTorque\": 010}");
    EXPECT_TRUE(service->parseJsonStringStreamAndSetValues(text));
    EXPECT_EQ(gen::memPersistent().RadioPower, 8);
    EXPECT_EQ(gen::memPersistent().LastKnownFocusValue, 0);
    EXPECT_EQ(gen::memPersistent().FocusTorque, 3);
    EXPECT_EQ(gen::memPersistent().ZoomTorque, 2);
    EXPECT_THAT(messages(log.lines()),
                ElementsAre("The value of variable: RadioPower is out of range!",
                            "Value must be between min: 1 and max: 10, but is: 08",
                            "RadioPower: kept aside, outside 1..10",
                            "The value of variable: LastKnownFocusValue is out of range!",
                            "Value must be between min: 0 and max: 65535, but is: 0x7fffffff",
                            "LastKnownFocusValue: kept aside, outside 0..65535",
                            "The value of variable: ZoomTorque is out of range!",
                            "Value must be between min: 1 and max: 4, but is: 010",
                            "ZoomTorque: kept aside, outside 1..4"));
}

TEST_F(LoaderTest, UnconvertibleValueLogsTheCheckersText) {
    testsupport::KmsgCapture log;
    auto text = document("{\"AUXTorque\": abc}");
    EXPECT_TRUE(service->parseJsonStringStreamAndSetValues(text));
    EXPECT_EQ(gen::memPersistent().AUXTorque, 2);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Error, "settingsloader.cpp",
                                       "The value of variable: AUXTorque is out of range!"));
    // The checker's text ends in a line feed of its own.
    EXPECT_TRUE(testsupport::isLogLine(lines[1], gen::Error, "settingsloader.cpp",
                                       "Can't convert \"abc\""));
    EXPECT_EQ(lines[2], "");
    EXPECT_TRUE(testsupport::isLogLine(lines[3], gen::Warn, "settingsloader.cpp",
                                       "AUXTorque: kept aside, Can't convert \"abc\""));
}

TEST_F(LoaderTest, SetterErrorIsAWarningAndFailsTheLoadButOthersApply) {
    testsupport::KmsgCapture log;
    auto text = document("{\"KnobLock\": TRUE, \"FocusTorque\": 4, "
                         "\"CinefadeDisplayModeValue\": \"filter\"}");
    EXPECT_FALSE(service->parseJsonStringStreamAndSetValues(text));
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
    EXPECT_FALSE(gen::memPersistent().KnobLock);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_TRUE(testsupport::isLogLine(
        lines[0], gen::Warn, "settingsloader.cpp",
        "Could not set KnobLock to TRUE : Value has to be 'true' or 'false'"));
    EXPECT_TRUE(testsupport::isLogLine(lines[1], gen::Warn, "settingsloader.cpp",
                                       "KnobLock: kept aside, Value has to be 'true' or 'false'"));
    EXPECT_TRUE(testsupport::isLogLine(lines[2], gen::Warn, "settingsloader.cpp",
                                       "Could not set CinefadeDisplayModeValue to filter : "
                                       "filter is not part of enum CinefadeDisplayMode"));
    EXPECT_TRUE(testsupport::isLogLine(lines[3], gen::Warn, "settingsloader.cpp",
                                       "CinefadeDisplayModeValue: kept aside, filter is not part "
                                       "of enum CinefadeDisplayMode"));
}

TEST_F(LoaderTest, UnknownKeyIsNotStoredAndSaysSo) {
    testsupport::KmsgCapture log;
    auto text = document("{\"NoSuchVariable\": 1, \"FocusTorque\": 1}");
    EXPECT_TRUE(service->parseJsonStringStreamAndSetValues(text));
    EXPECT_EQ(gen::memPersistent().FocusTorque, 1);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Warn, "settingsloader.cpp",
                                       "NoSuchVariable: kept aside, no variable of that name"));
}

TEST_F(LoaderTest, SyntaxErrorLogsAnExcerptAndChangesNothing) {
    testsupport::KmsgCapture log;
    const std::string text = "{\"FocusTorque\": 3, \"AUXTorque\": 4, \"KnobLock\" true}";
    auto stream = document(text);
    EXPECT_FALSE(service->parseJsonStringStreamAndSetValues(stream));
    EXPECT_EQ(gen::memPersistent().FocusTorque, 2);
    EXPECT_THAT(posted(), IsEmpty());
    const int position = static_cast<int>(text.find(" true")) + 1;
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Error, "settingsloader.cpp",
                                       "JSON parse error at " + std::to_string(position)));
    EXPECT_TRUE(testsupport::isLogLine(lines[1], gen::Error, "settingsloader.cpp",
                                       text.substr(position - 20, 41)));
    EXPECT_TRUE(testsupport::isLogLine(lines[2], gen::Error, "settingsloader.cpp",
                                       "                    ^ here"));
}

TEST_F(LoaderTest, SyntaxErrorWithinTheFirstTwentyCharactersHasBlanksBeforeTheExcerpt) {
    testsupport::KmsgCapture log;
    const std::string text = "{\"FocusTorque\" 3}";
    auto stream = document(text);
    EXPECT_FALSE(service->parseJsonStringStreamAndSetValues(stream));
    EXPECT_EQ(gen::memPersistent().FocusTorque, 2);
    EXPECT_THAT(posted(), IsEmpty());
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Error, "settingsloader.cpp",
                                       "JSON parse error at 15"));
    EXPECT_TRUE(testsupport::isLogLine(lines[1], gen::Error, "settingsloader.cpp",
                                       std::string(5, ' ') + text));
    EXPECT_TRUE(testsupport::isLogLine(lines[2], gen::Error, "settingsloader.cpp",
                                       "                    ^ here"));
}

TEST_F(LoaderTest, AnErrorAtTheFirstCharacterIsReportedUnderTheCaret) {
    const std::string text = "\xef\xbb\xbf{\"FocusTorque\": 3} and then some more text";
    for (const std::string& bad : {std::string("x"), std::string("garbage"), text}) {
        testsupport::KmsgCapture log;
        auto stream = document(bad);
        EXPECT_FALSE(service->parseJsonStringStreamAndSetValues(stream));
        const auto texts = messages(log.lines());
        ASSERT_EQ(texts.size(), 3u);
        EXPECT_EQ(texts[0], "JSON parse error at 0");
        EXPECT_EQ(texts[1], std::string(20, ' ') + bad.substr(0, 21));
        EXPECT_EQ(texts[2], "                    ^ here");
    }
}

TEST_F(LoaderTest, StructArrayElementsAreStoredFieldByField) {
    auto text = document("{\"RecentLensFiles\": [{}, {\"LensFileName\": {\"value\": \"Zeta 50\", "
                         "\"type\": \"string\" }, \"LensFileUseCount\": {\"value\":\"7\"}}]}");
    EXPECT_TRUE(service->parseJsonStringStreamAndSetValues(text));
    const gen::LensFile& second = gen::memPersistent().RecentLensFiles[1];
    EXPECT_STREQ(second.LensFileName.data(), "Zeta 50");
    EXPECT_EQ(second.LensFileUseCount, 7);
    EXPECT_EQ(gen::memPersistent().RecentLensFiles[0].LensFileUseCount, 0);
}

TEST_F(LoaderTest, AStructArrayFieldWithoutValueIsASetterErrorAndTheOthersApply) {
    testsupport::KmsgCapture log;
    const std::string value = "[{\"LensFileUseCount\": {\"text\":\"7\"}, "
                              "\"LensFileName\": {\"value\":\"Zeta\"}}]";
    auto text = document("{\"RecentLensFiles\": " + value + ", \"FocusTorque\": 4}");
    EXPECT_FALSE(service->parseJsonStringStreamAndSetValues(text));
    EXPECT_STREQ(gen::memPersistent().RecentLensFiles[0].LensFileName.data(), "Zeta");
    EXPECT_EQ(gen::memPersistent().RecentLensFiles[0].LensFileUseCount, 0);
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Warn, "settingsloader.cpp",
                                       "Could not set RecentLensFiles to " + value +
                                           " : LensFileUseCount: no \"value\""));
    EXPECT_TRUE(testsupport::isLogLine(lines[1], gen::Warn, "settingsloader.cpp",
                                       "RecentLensFiles: kept aside, LensFileUseCount: no "
                                       "\"value\""));
}

TEST_F(LoaderTest, MissingFileSetsFileNotFoundOnceAndFails) {
    testsupport::KmsgCapture log;
    gen::memDeviceState().FileNotFound = false;
    EXPECT_FALSE(service->loadSetting("nosuch.stp", false));
    EXPECT_TRUE(gen::memDeviceState().FileNotFound);
    EXPECT_THAT(ids(posted()), ElementsAre(VarFileNotFoundChanged));
    EXPECT_FALSE(service->loadSetting("nosuch.stp", false));
    EXPECT_THAT(posted(), IsEmpty());
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Error, "settingsloader.cpp",
                                       "Could not open settings file: nosuch.stp"));
}

TEST_F(LoaderTest, MissingCurrentFileIsCreatedFromTheDefaultsAndLoaded) {
    testsupport::KmsgCapture log;
    EXPECT_TRUE(service->init());
    ASSERT_TRUE(exists(CURRENT));
    EXPECT_EQ(readFile(CURRENT), service->getCurrentValues().str());
    for (const std::string& message : messages(log.lines())) {
        EXPECT_EQ(message.find("Could not open settings file"), std::string::npos);
    }
}

TEST_F(LoaderTest, ExistingCurrentFileIsLoadedAtStart) {
    std::filesystem::create_directory(SETUPS);
    writeFile(CURRENT, "{\"FocusTorque\": 4, \"SoundVolume\": 3}");
    EXPECT_TRUE(service->init());
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
    EXPECT_EQ(gen::memPersistent().SoundVolume, 3);
}

TEST_F(LoaderTest, LoadingAUserSetupRewritesTheCurrentFileAtOnce) {
    ASSERT_TRUE(service->init());
    writeFile(std::string(SETUPS) + "Studio.stp", "{\"IrisTorque\": 4}");
    const std::string before = readFile(CURRENT);
    EXPECT_TRUE(service->loadSetting("Studio.stp", true));
    const std::string after = readFile(CURRENT);
    EXPECT_NE(after, before);
    EXPECT_NE(after.find("\"IrisTorque\": 4,\n"), std::string::npos);
    EXPECT_EQ(after, service->getCurrentValues().str());
}

TEST_F(LoaderTest, LoadingWithoutStoreLeavesTheCurrentFile) {
    ASSERT_TRUE(service->init());
    writeFile(std::string(SETUPS) + "Studio.stp", "{\"IrisTorque\": 4}");
    const std::string before = readFile(CURRENT);
    EXPECT_TRUE(service->loadSetting("Studio.stp", false));
    EXPECT_EQ(readFile(CURRENT), before);
    EXPECT_EQ(gen::memPersistent().IrisTorque, 4);
}

TEST_F(LoaderTest, FactoryResetWithTheFlagClearedDoesNothing) {
    ASSERT_TRUE(service->init());
    writeFile(std::string(SETUPS) + "Keep.stp", "{}");
    gen::memPersistent().FocusTorque = 4;
    posted();
    testsupport::KmsgCapture log;
    gen::memGuiLocal().FactoryReset = false;
    service->handleEvent(Notify{VarFactoryResetChanged, 0, 0});
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(posted(), IsEmpty());
    EXPECT_TRUE(exists(std::string(SETUPS) + "Keep.stp"));
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
}

TEST_F(LoaderTest, FactoryResetDeletesTheFolderRestoresDefaultsAndClearsTheFlag) {
    ASSERT_TRUE(service->init());
    writeFile(std::string(SETUPS) + "Keep.stp", "{}");
    std::filesystem::create_directory(std::string(SETUPS) + "folder");
    gen::memPersistent().FocusTorque = 4;
    posted();
    testsupport::KmsgCapture log;
    gen::memGuiLocal().FactoryReset = true;
    service->handleEvent(Notify{VarFactoryResetChanged, 0, 0});
    EXPECT_FALSE(gen::memGuiLocal().FactoryReset);
    EXPECT_EQ(gen::memPersistent().FocusTorque, 2);
    EXPECT_TRUE(std::filesystem::is_empty(SETUPS));
    EXPECT_FALSE(service->isDirty());
    const std::vector<EventId> order = ids(posted());
    ASSERT_GE(order.size(), 3u);
    EXPECT_EQ(order.front(), UnsubscribeAll);
    EXPECT_EQ(order[1], VarFocusTorqueChanged);
    EXPECT_EQ(order.back(), VarFactoryResetChanged);
    const auto lines = log.lines();
    const auto texts = messages(lines);
    ASSERT_GE(texts.size(), 2u);
    EXPECT_EQ(texts.front(), "Factory reset started");
    EXPECT_EQ(texts.back(), "Factory reset done");
    EXPECT_TRUE(testsupport::isLogLine(lines.front(), gen::LogLight, "settingsloader.cpp",
                                       "Factory reset started"));
    EXPECT_TRUE(testsupport::isLogLine(lines.back(), gen::LogLight, "settingsloader.cpp",
                                       "Factory reset done"));
}

// The loader on its own: reading and applying a file through the folder.
class SettingsLoaderTest : public ServiceClassTest {};

TEST_F(SettingsLoaderTest, AFileInTheFolderIsAppliedAndAFileOutsideIsNot) {
    std::filesystem::create_directory(SETUPS);
    writeFile(std::string(SETUPS) + "Studio.stp", "{\"ZoomTorque\": 4}");
    writeFile("/var/Outside.stp", "{\"ZoomTorque\": 5}");
    EXPECT_TRUE(loader.load("Studio.stp", false));
    EXPECT_EQ(gen::memPersistent().ZoomTorque, 4);
    EXPECT_FALSE(exists(CURRENT));
    EXPECT_FALSE(loader.load("../Outside.stp", true));
    EXPECT_EQ(gen::memPersistent().ZoomTorque, 4);
    std::filesystem::remove("/var/Outside.stp");
}

TEST_F(SettingsLoaderTest, TheFactoryResetEmptiesTheFolderAndAppliesTheCapturedDefaults) {
    std::filesystem::create_directory(SETUPS);
    loader.captureDefaults();
    EXPECT_TRUE(exists(CURRENT));
    gen::memPersistent().ZoomTorque = 4;
    bool emptied = false;
    loader.factoryReset([&] { emptied = true; });
    EXPECT_FALSE(emptied);
    EXPECT_EQ(gen::memPersistent().ZoomTorque, 4);
    gen::memGuiLocal().FactoryReset = true;
    loader.factoryReset([&] { emptied = true; });
    EXPECT_TRUE(emptied);
    EXPECT_EQ(gen::memPersistent().ZoomTorque, 2);
    EXPECT_FALSE(gen::memGuiLocal().FactoryReset);
}

TEST_F(SettingsLoaderTest, TheDefaultsAreThoseOfTheCaptureWhatTheMemoryHoldsLater) {
    std::filesystem::create_directory(SETUPS);
    loader.captureDefaults();
    const std::string defaults = readFile(CURRENT);
    auto& values = gen::memPersistent();
    values.ZoomTorque = 4;
    std::snprintf(values.UserButton4_Name.data(), values.UserButton4_Name.size(), "Changed");
    std::snprintf(values.RecentLensFiles[1].LensFileName.data(),
                  values.RecentLensFiles[1].LensFileName.size(), "Zeta 50");
    gen::memGuiLocal().FactoryReset = true;
    loader.factoryReset([] {});
    EXPECT_EQ(store.currentValues().str(), defaults);
}
