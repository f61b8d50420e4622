// Change tracking and the settings document: addUpdate, the document's exact
// form, and writing files.
#include "kmsgcapture.h"
#include "logline.h"
#include "productinfo.h"
#include "servicefixture.h"
#include "settings-service/introspection.h"
#include "settings-service/records.h"
#include "settingsfolder.h"
#include "settingsstore.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <sys/stat.h>
#include <vector>

using namespace servicetest;
using testing::IsEmpty;

namespace {

std::vector<std::string> documentLines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        lines.push_back(text.substr(start, end - start));
    }
    lines.push_back(text.substr(start));
    return lines;
}

} // namespace

class StoreTest : public ServiceTest {};

TEST_F(StoreTest, AChangeOfAPersistentVariableIsLoggedAndMarksDirty) {
    testsupport::KmsgCapture log;
    gen::memPersistent().FocusTorque = 3;
    EXPECT_FALSE(service->isDirty());
    service->handleEvent(Notify{VarFocusTorqueChanged, 0, 0});
    EXPECT_TRUE(service->isDirty());
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::LogLight, "settingsstore.cpp",
                                       "FocusTorque changed to 3"));
}

TEST_F(StoreTest, AChangeBelowTheServicesLogLevelIsNotLoggedButMarksDirty) {
    gen::memApp().AppSettingsManagerLogLevel = gen::Warn;
    testsupport::KmsgCapture log;
    gen::memPersistent().FocusTorque = 3;
    service->handleEvent(Notify{VarFocusTorqueChanged, 0, 0});
    EXPECT_TRUE(service->isDirty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(StoreTest, AnEventOfNoPersistentVariableLogsNothingAndStillMarksDirty) {
    testsupport::KmsgCapture log;
    service->handleEvent(Notify{VarFocusTargetValueChanged, 0, 0});
    EXPECT_TRUE(service->isDirty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(StoreTest, EventsOfTheDialogueThatAreNoRequestsAreChanges) {
    for (EventId id : {VarUserSetupListChanged, VarUserSetupListSizeChanged,
                       VarUserSetupSelectedFileIndexChanged, VarUserSetupSaveChanged,
                       VarUserSetupFileCheckDoneChanged}) {
        startService();
        testsupport::KmsgCapture log;
        service->handleEvent(Notify{id, 0, 0});
        EXPECT_TRUE(service->isDirty()) << id;
        EXPECT_THAT(log.lines(), IsEmpty()) << id;
        EXPECT_THAT(posted(), IsEmpty()) << id;
    }
}

TEST_F(StoreTest, TheDocumentHasOneLinePerPersistentVariableInExactForm) {
    auto& values = gen::memPersistent();
    values.FocusTorque = 3;
    values.KnobLock = true;
    values.CinefadeDisplayModeValue = 1;
    values.CircleofConfusion = 0.5f;
    values.RadioModuleList = {0xAB, 0x01};
    std::snprintf(values.UserButton4_Name.data(), values.UserButton4_Name.size(), "Rec");
    std::snprintf(values.RecentLensFiles[1].LensFileName.data(),
                  values.RecentLensFiles[1].LensFileName.size(), "Zeta 50");
    const std::string text = service->getCurrentValues().str();

    ASSERT_GE(text.size(), 4u);
    EXPECT_EQ(text.substr(0, 2), "{\n");
    EXPECT_EQ(text.substr(text.size() - 2), "\n}");
    const std::vector<std::string> lines = documentLines(text);
    const uint32_t memory = Introspection::getMemIndex("MemPersistent");
    const uint32_t count = Introspection::getVarCount(memory);
    ASSERT_EQ(lines.size(), count + 2);
    EXPECT_EQ(lines.front(), "{");
    EXPECT_EQ(lines.back(), "}");
    EXPECT_EQ(lines[1], "\"AUXTorque\": 2,");
    EXPECT_EQ(lines[count], "\"ZoomTorque\": 2");
    for (uint32_t variable = 0; variable < count; ++variable) {
        const std::string& line = lines[variable + 1];
        const std::string start =
            "\"" + std::string(Introspection::getVarName(memory, variable)) + "\": ";
        EXPECT_EQ(line.substr(0, start.size()), start);
        EXPECT_EQ(line.back() == ',', variable + 1 < count) << line;
    }
    const auto has = [&](const std::string& line) {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    };
    EXPECT_TRUE(has("\"FocusTorque\": 3,"));
    EXPECT_TRUE(has("\"KnobLock\": true,"));
    EXPECT_TRUE(has("\"CinefadeDisplayModeValue\": \"Filter\","));
    EXPECT_TRUE(has("\"CircleofConfusion\": 0.500000,"));
    EXPECT_TRUE(has("\"UserButton4_Name\": \"Rec\","));
    EXPECT_TRUE(has("\"LensFileFavouriteFolder\": \"/var/LENSFILES/\","));
    EXPECT_TRUE(has("\"RadioModuleList\": \"ab01\","));

    uint32_t recent = 0;
    while (std::string(Introspection::getVarName(memory, recent)) != "RecentLensFiles") {
        ++recent;
    }
    std::string array = "\"RecentLensFiles\": [";
    for (int element = 0; element < 5; ++element) {
        const std::string value = Introspection::getVarValue(memory, recent, element);
        ASSERT_EQ(value.front(), '{');
        array += (element > 0 ? "," : "") + value;
    }
    array += "],";
    EXPECT_TRUE(has(array));
    EXPECT_NE(Introspection::getVarValue(memory, recent, 1)
                  .find("\"LensFileName\": {\"value\":\"Zeta 50\", \"type\": \"string\" }"),
              std::string::npos);
}

TEST_F(StoreTest, ProductLinesAlwaysCarryTheServicesProductInformation) {
    ASSERT_TRUE(service->init());
    std::snprintf(gen::memPersistent().ProductName.data(), 20, "Tampered");
    std::snprintf(gen::memPersistent().ProductVersion.data(), 20, "Tampered");
    const std::string text = service->getCurrentValues().str();
    EXPECT_EQ(text.find("Tampered"), std::string::npos);
    EXPECT_NE(text.find("\"ProductVersion\": \"0.0.0-dev\",\n"), std::string::npos);
    EXPECT_STREQ(gen::memPersistent().ProductVersion.data(), "0.0.0-dev");
}

TEST_F(StoreTest, StoreWritesTheWholeDocumentTruncatingTheOldFile) {
    std::filesystem::create_directory(SETUPS);
    const std::string path = std::string(SETUPS) + "Long.stp";
    writeFile(path, std::string(20000, 'x'));
    EXPECT_TRUE(service->storeToMemory("Long"));
    EXPECT_EQ(readFile(path), service->getCurrentValues().str());
}

TEST_F(StoreTest, AFileThatCannotBeWrittenIsReportedWithItsReason) {
    std::filesystem::create_directory(SETUPS);
    ASSERT_EQ(::chmod(SETUPS, 0555), 0);
    testsupport::KmsgCapture log;
    EXPECT_FALSE(service->storeToMemory("Blocked"));
    ::chmod(SETUPS, 0755);
    EXPECT_FALSE(exists(std::string(SETUPS) + "Blocked.stp"));
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(testsupport::isLogLine(
        lines[0], gen::Error, "settingsstore.cpp",
        "Could not save Blocked.stp: create /var//SETUPS/.Blocked.stp.tmp: Permission denied"));
}

TEST_F(StoreTest, TextsWithQuotesBackslashesAndControlCharactersReadBackAsTheyWere) {
    const auto setText = [](auto& variable, const char* text) {
        std::snprintf(variable.data(), variable.size(), "%s", text);
    };
    setText(gen::memPersistent().UserButton4_Name, "a\"b\\c\n");
    setText(gen::memPersistent().LensFileFavouriteFolder, "/var/\"x\"/\\u0041");
    setText(gen::memPersistent().RecentLensFiles[2].LensFileName, "Zeta \"50\" [a]}{,");
    setText(gen::memPersistent().RecentLensFiles[2].LensFileSerial, "S\\N\t1");
    const std::string text = service->getCurrentValues().str();
    const std::vector<std::string> lines = documentLines(text);
    EXPECT_NE(std::find(lines.begin(), lines.end(),
                        "\"UserButton4_Name\": \"a\\u0022b\\u005cc\\u000a\","),
              lines.end());
    EXPECT_NE(text.find("{\"value\":\"Zeta \\u002250\\u0022 \\u005ba\\u005d\\u007d\\u007b,\", "
                        "\"type\": \"string\" }"),
              std::string::npos);

    startService();
    ASSERT_STREQ(gen::memPersistent().UserButton4_Name.data(), "User 4");
    EXPECT_TRUE(service->parseJsonStringStreamAndSetValues(std::stringstream(text)));
    EXPECT_STREQ(gen::memPersistent().UserButton4_Name.data(), "a\"b\\c\n");
    EXPECT_STREQ(gen::memPersistent().LensFileFavouriteFolder.data(), "/var/\"x\"/\\u0041");
    EXPECT_STREQ(gen::memPersistent().RecentLensFiles[2].LensFileName.data(), "Zeta \"50\" [a]}{,");
    EXPECT_STREQ(gen::memPersistent().RecentLensFiles[2].LensFileSerial.data(), "S\\N\t1");
    EXPECT_EQ(service->getCurrentValues().str(), text);
}

// The store on its own: what it writes, and when it stays dirty.
class SettingsStoreTest : public ServiceClassTest {};

TEST_F(SettingsStoreTest, SavingWhenDirtyWritesTheCurrentFileOnceAndClearsDirty) {
    std::filesystem::create_directory(SETUPS);
    store.saveIfDirty();
    EXPECT_FALSE(exists(CURRENT));
    gen::memPersistent().FocusTorque = 3;
    store.addUpdate(VarFocusTorqueChanged);
    EXPECT_TRUE(store.isDirty());
    store.saveIfDirty();
    EXPECT_FALSE(store.isDirty());
    EXPECT_EQ(readFile(CURRENT), store.currentValues().str());
    EXPECT_NE(readFile(CURRENT).find("\"FocusTorque\": 3,\n"), std::string::npos);
}

TEST_F(SettingsStoreTest, AFailedSaveLeavesTheSettingsDirty) {
    store.markDirty();
    store.saveIfDirty();
    EXPECT_TRUE(store.isDirty());
    EXPECT_FALSE(store.store("../escaped").ok());
    EXPECT_FALSE(exists("/var/escaped.stp"));
}

TEST_F(SettingsStoreTest, AFailedSaveReturnsItsErrorAndTheCallerLogsItOnceWhileItRepeats) {
    std::filesystem::create_directory(SETUPS);
    ASSERT_EQ(::chmod(SETUPS, 0555), 0);
    testsupport::KmsgCapture log;
    const char* message =
        "Could not save .current.stp: create /var//SETUPS/..current.stp.tmp: Permission denied";

    const SettingsStore::SaveOutcome first = store.saveCurrent();
    ASSERT_FALSE(first.ok());
    EXPECT_EQ(first.file.error().text, message);
    EXPECT_EQ(first.file.error().code, EACCES);
    EXPECT_TRUE(store.isDirty());
    EXPECT_TRUE(log.lines().empty());

    store.log(first);
    // Saving the kept values alone tells nothing about ".current.stp".
    store.log(store.saveKept());
    store.log(store.saveIfDirty());
    ::chmod(SETUPS, 0755);
    store.log(store.saveIfDirty());
    ASSERT_EQ(::chmod(SETUPS, 0555), 0);
    gen::memPersistent().FocusTorque = 4;
    store.log(store.saveCurrent());
    ::chmod(SETUPS, 0755);

    // The last attempt also could not keep a backup of the file it wrote before (at Warn).
    std::vector<std::string> lines;
    for (const std::string& line : log.lines()) {
        if (line.find("Could not save") != std::string::npos) {
            lines.push_back(line);
        }
    }
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Error, "settingsstore.cpp", message));
    EXPECT_EQ(lines[1], lines[0]);
    EXPECT_EQ(readFile(CURRENT).find("\"FocusTorque\": 4,"), std::string::npos);
}

TEST_F(SettingsStoreTest, AFailedSaveOfTheKeptValuesReturnsItsErrorAndIsLoggedOnce) {
    std::filesystem::create_directory(SETUPS);
    ASSERT_TRUE(store.saveCurrent().ok());
    store.kept().clear();
    store.kept().set({{"RetiredSetting", "7", std::nullopt}});
    ASSERT_EQ(::chmod(SETUPS, 0555), 0);
    testsupport::KmsgCapture log;
    const char* message = "Could not save .current.stp.kept: create "
                          "/var//SETUPS/..current.stp.kept.tmp: Permission denied";

    const SettingsStore::SaveOutcome first = store.saveKept();
    ASSERT_FALSE(first.kept.ok());
    EXPECT_EQ(first.kept.error().text, message);
    EXPECT_EQ(first.kept.error().code, EACCES);
    EXPECT_TRUE(log.lines().empty());
    store.log(first);
    store.log(store.saveKept());
    ::chmod(SETUPS, 0755);

    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Error, "keptsettings.cpp", message));
    store.log(store.saveKept());
    EXPECT_TRUE(exists(std::string(SETUPS) + ".current.stp.kept"));
}

TEST_F(SettingsStoreTest, ASnapshotGivesTheDocumentOfItsMomentWhateverChangesLater) {
    auto& values = gen::memPersistent();
    values.FocusTorque = 3;
    values.CircleofConfusion = 0.25f;
    std::snprintf(values.UserButton4_Name.data(), values.UserButton4_Name.size(), "a\"b");
    std::snprintf(values.RecentLensFiles[1].LensFileName.data(),
                  values.RecentLensFiles[1].LensFileName.size(), "Zeta 50");
    const std::vector<uint8_t> record = store.snapshot();
    const std::string then = store.currentValues().str();
    EXPECT_EQ(store.documentOf(record), then);

    values.FocusTorque = 4;
    std::snprintf(values.RecentLensFiles[1].LensFileName.data(),
                  values.RecentLensFiles[1].LensFileName.size(), "Other");
    EXPECT_NE(store.currentValues().str(), then);
    EXPECT_EQ(store.documentOf(record), then);
}
