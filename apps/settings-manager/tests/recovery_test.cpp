// The backup of ".current.stp" and the start-up recovery from a damaged file.
#include "kmsgcapture.h"
#include "logline.h"
#include "servicefixture.h"
#include "settings-service/records.h"

#include <filesystem>
#include <fstream>
#include <sys/stat.h>

using namespace servicetest;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace {

const std::string BACKUP = std::string(SETUPS) + ".current.stp.backup";
const std::string DAMAGED = std::string(SETUPS) + ".current.stp.damaged";

std::vector<std::string> folderNames() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(SETUPS)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

class RecoveryTest : public ServiceTest {
protected:
    // A settings folder whose current file and backup hold the given torques.
    void prepare(const std::string& current, const std::string& backup) {
        std::filesystem::create_directory(SETUPS);
        if (!current.empty()) {
            writeFile(CURRENT, current);
        }
        if (!backup.empty()) {
            writeFile(BACKUP, backup);
        }
    }
};

TEST_F(RecoveryTest, SavingMakesTheReplacedCurrentFileTheBackup) {
    ASSERT_TRUE(service->init());
    const std::string first = readFile(CURRENT);
    EXPECT_FALSE(exists(BACKUP));
    gen::memPersistent().FocusTorque = 4;
    EXPECT_TRUE(service->storeToMemory(".current"));
    EXPECT_EQ(readFile(BACKUP), first);
    const std::string second = readFile(CURRENT);
    EXPECT_NE(second.find("\"FocusTorque\": 4,"), std::string::npos);
    gen::memPersistent().FocusTorque = 3;
    EXPECT_TRUE(service->storeToMemory(".current"));
    EXPECT_EQ(readFile(BACKUP), second);
    EXPECT_THAT(folderNames(), ElementsAre(".current.stp", ".current.stp.backup"));
}

TEST_F(RecoveryTest, AnIncompleteCurrentFileNeverReplacesAGoodBackup) {
    prepare("{\"FocusTorque\": 4", "{\"FocusTorque\": 3}");
    service->parseJsonStringStreamAndSetValues(std::stringstream("{}"));
    EXPECT_TRUE(service->storeToMemory(".current"));
    EXPECT_EQ(readFile(BACKUP), "{\"FocusTorque\": 3}");
}

TEST_F(RecoveryTest, ACurrentFileRewrittenInPlaceSinceTheLastSaveIsCheckedAgain) {
    ASSERT_TRUE(service->init());
    gen::memPersistent().FocusTorque = 4;
    ASSERT_TRUE(service->storeToMemory(".current"));
    const std::string backup = readFile(BACKUP);
    {
        std::ofstream file(CURRENT, std::ios::in | std::ios::out);
        file << "{\"FocusTorque\": 4";
    }
    std::filesystem::resize_file(CURRENT, 16);
    EXPECT_TRUE(service->storeToMemory(".current"));
    EXPECT_EQ(readFile(BACKUP), backup);
}

TEST_F(RecoveryTest, ADamagedCurrentFileIsKeptAsideAndTheBackupIsLoaded) {
    const std::string damaged = "{\"FocusTorque\": 4, \"IrisTorque\" 4, \"ZoomTorque\": 4}";
    prepare(damaged, "{\"FocusTorque\": 3, \"IrisTorque\": 3}");
    testsupport::KmsgCapture log;
    ASSERT_TRUE(service->init());
    EXPECT_EQ(gen::memPersistent().FocusTorque, 3);
    EXPECT_EQ(gen::memPersistent().IrisTorque, 3);
    EXPECT_EQ(gen::memPersistent().ZoomTorque, 2);
    EXPECT_EQ(readFile(DAMAGED), damaged);
    EXPECT_EQ(readFile(CURRENT), service->getCurrentValues().str());
    EXPECT_EQ(readFile(BACKUP), "{\"FocusTorque\": 3, \"IrisTorque\": 3}");
    const auto texts = messages(log.lines());
    const int position = static_cast<int>(damaged.find("\" 4,") + 2);
    const std::vector<std::string> expected = {
        "JSON parse error at " + std::to_string(position),
        damaged.substr(position - 20, 41),
        "                    ^ here",
        "Settings file .current.stp is not a complete settings document",
        "The damaged settings file is kept as .current.stp.damaged",
        "Settings restored from the backup .current.stp.backup"};
    auto first = std::find(texts.begin(), texts.end(), expected.front());
    ASSERT_NE(first, texts.end());
    EXPECT_EQ(std::vector<std::string>(first, first + expected.size()), expected);
    for (const std::string& line : log.lines()) {
        if (line.find("Settings restored") != std::string::npos) {
            EXPECT_TRUE(
                testsupport::isLogLine(line, gen::Warn, "settingsloader.cpp", expected.back()));
        }
    }

    // The shutdown write keeps the restored settings, not the defaults.
    EXPECT_TRUE(service->close());
    EXPECT_NE(readFile(CURRENT).find("\"FocusTorque\": 3,"), std::string::npos);
    EXPECT_EQ(readFile(DAMAGED), damaged);
}

TEST_F(RecoveryTest, ADocumentCutShortIsDamagedToo) {
    prepare("{\n\"FocusTorque\": 4,\n\"IrisTorque\": 4,\n\"Zoom", "{\"FocusTorque\": 3}");
    testsupport::KmsgCapture log;
    ASSERT_TRUE(service->init());
    EXPECT_EQ(gen::memPersistent().FocusTorque, 3);
    EXPECT_EQ(gen::memPersistent().IrisTorque, 2);
    EXPECT_THAT(messages(log.lines()),
                Contains("Settings file .current.stp is not a complete settings document"));
    EXPECT_THAT(folderNames(),
                ElementsAre(".current.stp", ".current.stp.backup", ".current.stp.damaged"));
}

TEST_F(RecoveryTest, WithoutAUsableBackupTheDefaultsApplyAndTheDamagedFileStays) {
    for (const std::string& backup : {std::string(), std::string("{\"FocusTorque\": 3")}) {
        startService();
        std::filesystem::remove_all(SETUPS);
        prepare("\xef\xbb\xbf garbage", backup);
        testsupport::KmsgCapture log;
        ASSERT_TRUE(service->init());
        EXPECT_EQ(gen::memPersistent().FocusTorque, 2);
        EXPECT_EQ(readFile(DAMAGED), "\xef\xbb\xbf garbage");
        EXPECT_EQ(readFile(CURRENT), service->getCurrentValues().str());
        const auto lines = log.lines();
        EXPECT_THAT(messages(lines),
                    Contains("No usable backup of the settings; the defaults apply"));
        EXPECT_EQ(exists(BACKUP), !backup.empty());
    }
}

TEST_F(RecoveryTest, WithoutAUsableBackupEveryLineThatCanBeReadIsApplied) {
    // A valid document with one key that has a trailing blank, and the same
    // cut before its closing brace: every other line is read.
    const std::string whole = "{\n\"FocusTorque\": 4,\n\"IrisTorque \": 3,\n\"SoundVolume\": 9,\n"
                              "\"UserButton4_Name\": \"Take \\u00222\\u0022\",\n"
                              "\"ZoomTorque\": 1\n}";
    for (const std::string& current : {whole, whole.substr(0, whole.size() - 1)}) {
        startService();
        std::filesystem::remove_all(SETUPS);
        prepare(current, "");
        testsupport::KmsgCapture log;
        ASSERT_TRUE(service->init());
        EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
        EXPECT_EQ(gen::memPersistent().IrisTorque, 2);
        EXPECT_EQ(gen::memPersistent().SoundVolume, 9);
        EXPECT_STREQ(gen::memPersistent().UserButton4_Name.data(), "Take \"2\"");
        EXPECT_EQ(gen::memPersistent().ZoomTorque, 1);
        EXPECT_EQ(readFile(DAMAGED), current);
        EXPECT_EQ(readFile(CURRENT), service->getCurrentValues().str());
        const auto lines = log.lines();
        EXPECT_THAT(messages(lines), Contains("Could not read line 3 of .current.stp.damaged: "
                                              "\"IrisTorque \": 3,"));
        EXPECT_THAT(messages(lines), Contains("No usable backup of the settings; 4 lines read one "
                                              "by one, the defaults apply to the rest"));
    }
}

TEST_F(RecoveryTest, ADamagedBackupGivesItsLinesAndTheDamagedCurrentFileItsNewerOnes) {
    prepare("{\n\"FocusTorque\": 4,\n\"IrisTorque\" 4,\n\"Zoom",
            "{\n\"FocusTorque\": 3,\n\"IrisTorque\": 3,\n\"ZoomTorque\": 3,\n\"Sound");
    testsupport::KmsgCapture log;
    ASSERT_TRUE(service->init());
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
    EXPECT_EQ(gen::memPersistent().IrisTorque, 3);
    EXPECT_EQ(gen::memPersistent().ZoomTorque, 3);
    EXPECT_THAT(messages(log.lines()),
                Contains("Could not read line 5 of .current.stp.backup: \"Sound"));
}

TEST_F(RecoveryTest, OnlyTheFirstTenUnreadableLinesAreLoggedOneByOne) {
    std::string garbage = "{\n\"FocusTorque\": 4,\n";
    for (int line = 0; line < 25; ++line) {
        garbage += "garbage " + std::to_string(line) + "\n";
    }
    prepare(garbage, "");
    testsupport::KmsgCapture log;
    ASSERT_TRUE(service->init());
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
    const std::vector<std::string> texts = messages(log.lines());
    EXPECT_EQ(std::count_if(texts.begin(), texts.end(),
                            [](const std::string& text) {
                                return text.rfind("Could not read line ", 0) == 0;
                            }),
              10);
    EXPECT_THAT(texts, Contains("15 more lines of .current.stp.damaged could not be read"));
}

TEST_F(RecoveryTest, AMissingCurrentFileIsRestoredFromTheBackup) {
    prepare("", "{\"FocusTorque\": 4}");
    ASSERT_TRUE(service->init());
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
    EXPECT_NE(readFile(CURRENT).find("\"FocusTorque\": 4,"), std::string::npos);
}

TEST_F(RecoveryTest, AFolderInThePlaceOfTheCurrentFileIsMovedAside) {
    prepare("", "{\"FocusTorque\": 4}");
    std::filesystem::create_directories(CURRENT + std::string("/inside"));
    ASSERT_TRUE(service->init());
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
    EXPECT_TRUE(std::filesystem::is_directory(DAMAGED + "/inside"));
    EXPECT_TRUE(std::filesystem::is_regular_file(CURRENT));
}

TEST_F(RecoveryTest, OnlyOneDamagedFileIsKept) {
    prepare("first damage", "{\"FocusTorque\": 4}");
    ASSERT_TRUE(service->init());
    EXPECT_EQ(readFile(DAMAGED), "first damage");
    startService();
    writeFile(CURRENT, "second damage");
    ASSERT_TRUE(service->init());
    EXPECT_EQ(readFile(DAMAGED), "second damage");
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
    EXPECT_THAT(folderNames(),
                ElementsAre(".current.stp", ".current.stp.backup", ".current.stp.damaged"));
}

TEST_F(RecoveryTest, AByteOrderMarkBeforeAGoodDocumentIsIgnored) {
    prepare("\xef\xbb\xbf{\"FocusTorque\": 4}", "");
    ASSERT_TRUE(service->init());
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
    EXPECT_FALSE(exists(DAMAGED));
}

TEST_F(RecoveryTest, LeftoverTemporaryFilesAreRemovedAtStart) {
    prepare("{\"FocusTorque\": 4}", "");
    writeFile(std::string(SETUPS) + "..current.stp.tmp", "{\"Foc");
    writeFile(std::string(SETUPS) + ".Studio.stp.tmp", "");
    writeFile(std::string(SETUPS) + "Studio.stp", "{}");
    ASSERT_TRUE(service->init());
    EXPECT_THAT(folderNames(), ElementsAre(".current.stp", "Studio.stp"));
}

TEST_F(RecoveryTest, AFactoryResetRemovesTheBackupAndTheDamagedFile) {
    prepare("damaged", "{\"FocusTorque\": 4}");
    ASSERT_TRUE(service->init());
    ASSERT_TRUE(exists(DAMAGED));
    gen::memGuiLocal().FactoryReset = true;
    service->handleEvent(Notify{VarFactoryResetChanged, 0, 0});
    EXPECT_TRUE(std::filesystem::is_empty(SETUPS));
    EXPECT_EQ(gen::memPersistent().FocusTorque, 2);
}

TEST_F(RecoveryTest, NothingIsWrittenBeforeTheStartUpLoad) {
    prepare("{\"FocusTorque\": 4}", "");
    EXPECT_FALSE(service->close());
    EXPECT_EQ(readFile(CURRENT), "{\"FocusTorque\": 4}");
    service.reset();
    EXPECT_EQ(readFile(CURRENT), "{\"FocusTorque\": 4}");
    startService();
}
