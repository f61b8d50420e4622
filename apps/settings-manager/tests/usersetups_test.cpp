// User setups: the list in MemUserSetups and the dialogue's requests.
#include "kmsgcapture.h"
#include "logline.h"
#include "productinfo.h"
#include "servicefixture.h"
#include "settings-service/introspection.h"
#include "settings-service/records.h"
#include "settingsfolder.h"
#include "settingsloader.h"
#include "settingsstore.h"
#include "usersetups.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>

using namespace servicetest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

std::string inFolder(const std::string& name) {
    return std::string(SETUPS) + name;
}

std::string entry(int index) {
    return gen::memUserSetups().UserSetupList[index].UserSetupFileName.data();
}

std::vector<std::string> entries() {
    std::vector<std::string> result;
    for (int i = 0; i < gen::memUserSetups().UserSetupListSize; ++i) {
        result.push_back(entry(i));
    }
    return result;
}

void setName(const char* name) {
    std::snprintf(gen::memUserSetups().UserSetupSave.data(), 18, "%s", name);
}

} // namespace

class UserSetupsTest : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        ASSERT_TRUE(service->init());
        gen::memDeviceState().FileAlreadyExists = false;
        gen::memUserSetups().UserSetupFileCheckDone = false;
        posted();
    }

    void request(bool& flag, EventId event) {
        flag = true;
        service->handleEvent(Notify{event, 0, 0});
    }
};

// Hidden names include the service's temporary files, its backup and the damaged file kept aside.
TEST_F(UserSetupsTest, FoldersComeFirstEachGroupSortedWithoutCaseHiddenNamesLeftOut) {
    std::filesystem::create_directory(inFolder("b"));
    std::filesystem::create_directory(inFolder("A"));
    for (const char* name : {"c.stp", "B.stp", "x.txt", ".hidden.stp", ".c.stp.tmp",
                             "..current.stp.tmp", ".current.stp.backup", ".current.stp.damaged"}) {
        writeFile(inFolder(name), "{}");
    }
    service->updateUserSettingList();
    EXPECT_THAT(entries(), ElementsAre("A", "b", "B.stp", "c.stp", "x.txt"));
    EXPECT_TRUE(exists(CURRENT));
}

TEST_F(UserSetupsTest, TheStartFillsTheListOnce) {
    writeFile(inFolder("Studio.stp"), "{}");
    startService();
    gen::memUserSetups().UserSetupListSize = 7;
    ASSERT_TRUE(service->init());
    EXPECT_THAT(entries(), ElementsAre("Studio.stp"));
}

TEST_F(UserSetupsTest, NamesLongerThan21CharactersAreCut) {
    writeFile(inFolder("abcdefghijklmnopqrstuvwxyz.stp"), "{}");
    service->updateUserSettingList();
    EXPECT_THAT(entries(), ElementsAre("abcdefghijklmnopqrstu"));
}

TEST_F(UserSetupsTest, ACountThatChangesPostsBothEventsAnUnchangedOneOnlyTheList) {
    for (const char* name : {"a.stp", "b.stp", "c.stp", "d.stp", "e.stp"}) {
        writeFile(inFolder(name), "{}");
    }
    service->updateUserSettingList();
    EXPECT_EQ(gen::memUserSetups().UserSetupListSize, 5);
    EXPECT_THAT(ids(posted()), ElementsAre(VarUserSetupListChanged, VarUserSetupListSizeChanged));

    std::filesystem::remove(inFolder("a.stp"));
    std::filesystem::remove(inFolder("b.stp"));
    service->updateUserSettingList();
    EXPECT_THAT(entries(), ElementsAre("c.stp", "d.stp", "e.stp"));
    EXPECT_EQ(entry(3), "d.stp");
    EXPECT_EQ(entry(4), "e.stp");
    EXPECT_THAT(ids(posted()), ElementsAre(VarUserSetupListChanged, VarUserSetupListSizeChanged));

    service->updateUserSettingList();
    EXPECT_THAT(ids(posted()), ElementsAre(VarUserSetupListChanged));
}

TEST_F(UserSetupsTest, MoreThanTwentyEntriesFillTheTwentySlots) {
    for (int i = 0; i < 25; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "setup%02d.stp", i);
        writeFile(inFolder(name), "{}");
    }
    service->updateUserSettingList();
    EXPECT_EQ(gen::memUserSetups().UserSetupListSize, 20);
    EXPECT_EQ(entry(0), "setup00.stp");
    EXPECT_EQ(entry(19), "setup19.stp");
}

TEST_F(UserSetupsTest, SavingUnderANewNameWritesTheFileAndClearsTheName) {
    auto& setups = gen::memUserSetups();
    setName("Studio");
    request(setups.UserSetupAcceptSaveFileName, VarUserSetupAcceptSaveFileNameChanged);
    EXPECT_EQ(readFile(inFolder("Studio.stp")), service->getCurrentValues().str());
    EXPECT_STREQ(setups.UserSetupSave.data(), "");
    EXPECT_TRUE(setups.UserSetupFileCheckDone);
    EXPECT_FALSE(setups.UserSetupAcceptSaveFileName);
    EXPECT_FALSE(gen::memDeviceState().FileAlreadyExists);
    EXPECT_THAT(ids(posted()),
                ElementsAre(VarUserSetupSaveChanged, VarUserSetupFileCheckDoneChanged,
                            VarUserSetupAcceptSaveFileNameChanged));
}

TEST_F(UserSetupsTest, SavingUnderAnExistingNameAsksAndTheOverwriteWritesIt) {
    auto& setups = gen::memUserSetups();
    writeFile(inFolder("Studio.stp"), "old");
    setName("Studio");
    request(setups.UserSetupAcceptSaveFileName, VarUserSetupAcceptSaveFileNameChanged);
    EXPECT_EQ(readFile(inFolder("Studio.stp")), "old");
    EXPECT_TRUE(gen::memDeviceState().FileAlreadyExists);
    EXPECT_TRUE(setups.UserSetupFileCheckDone);
    EXPECT_STREQ(setups.UserSetupSave.data(), "Studio");
    EXPECT_THAT(ids(posted()),
                ElementsAre(VarFileAlreadyExistsChanged, VarUserSetupFileCheckDoneChanged,
                            VarUserSetupAcceptSaveFileNameChanged));

    request(setups.UserSetupOverwriteFile, VarUserSetupOverwriteFileChanged);
    EXPECT_EQ(readFile(inFolder("Studio.stp")), service->getCurrentValues().str());
    EXPECT_STREQ(setups.UserSetupSave.data(), "");
    EXPECT_FALSE(setups.UserSetupOverwriteFile);
    EXPECT_THAT(ids(posted()),
                ElementsAre(VarUserSetupOverwriteFileChanged, VarUserSetupSaveChanged));
}

TEST_F(UserSetupsTest, SavingWithAnEmptyNameOnlyReportsTheCheck) {
    auto& setups = gen::memUserSetups();
    setName("");
    request(setups.UserSetupAcceptSaveFileName, VarUserSetupAcceptSaveFileNameChanged);
    EXPECT_TRUE(setups.UserSetupFileCheckDone);
    EXPECT_THAT(ids(posted()), ElementsAre(VarUserSetupFileCheckDoneChanged,
                                           VarUserSetupAcceptSaveFileNameChanged));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(SETUPS), {}), 1);
}

TEST_F(UserSetupsTest, RenamingToAFreeNameMovesTheFile) {
    auto& setups = gen::memUserSetups();
    writeFile(inFolder("Old.stp"), "old");
    service->updateUserSettingList();
    posted();
    setups.UserSetupSelectedFileIndex = 0;
    setName("New");
    request(setups.UserSetupRename, VarUserSetupRenameChanged);
    EXPECT_FALSE(exists(inFolder("Old.stp")));
    EXPECT_EQ(readFile(inFolder("New.stp")), "old");
    EXPECT_STREQ(setups.UserSetupSave.data(), "");
    EXPECT_TRUE(setups.UserSetupFileCheckDone);
    EXPECT_THAT(ids(posted()), ElementsAre(VarUserSetupRenameChanged, VarUserSetupSaveChanged,
                                           VarUserSetupFileCheckDoneChanged));
}

TEST_F(UserSetupsTest, RenamingOntoAnExistingFileAsksAndTheOverwriteReplacesIt) {
    auto& setups = gen::memUserSetups();
    writeFile(inFolder("New.stp"), "new");
    writeFile(inFolder("Old.stp"), "old");
    service->updateUserSettingList();
    posted();
    setups.UserSetupSelectedFileIndex = 1;
    setName("New");
    request(setups.UserSetupRename, VarUserSetupRenameChanged);
    EXPECT_EQ(readFile(inFolder("New.stp")), "new");
    EXPECT_TRUE(exists(inFolder("Old.stp")));
    EXPECT_TRUE(gen::memDeviceState().FileAlreadyExists);
    EXPECT_THAT(ids(posted()), ElementsAre(VarUserSetupRenameChanged, VarFileAlreadyExistsChanged,
                                           VarUserSetupFileCheckDoneChanged));

    request(setups.UserSetupOverwriteFile, VarUserSetupOverwriteFileChanged);
    EXPECT_FALSE(exists(inFolder("Old.stp")));
    EXPECT_EQ(readFile(inFolder("New.stp")), "old");
    EXPECT_STREQ(setups.UserSetupSave.data(), "");
}

TEST_F(UserSetupsTest, RenamingAnIndexOutsideTheListIsRefused) {
    auto& setups = gen::memUserSetups();
    writeFile(inFolder("Old.stp"), "old");
    service->updateUserSettingList();
    for (int index : {1, -1, 20, 1000}) {
        posted();
        setups.UserSetupFileCheckDone = false;
        setups.UserSetupSelectedFileIndex = index;
        setName("New");
        testsupport::KmsgCapture log;
        request(setups.UserSetupRename, VarUserSetupRenameChanged);
        EXPECT_FALSE(setups.UserSetupRename);
        EXPECT_TRUE(setups.UserSetupFileCheckDone);
        EXPECT_FALSE(gen::memDeviceState().FileAlreadyExists);
        EXPECT_STREQ(setups.UserSetupSave.data(), "New");
        EXPECT_TRUE(exists(inFolder("Old.stp")));
        EXPECT_FALSE(exists(inFolder("New.stp")));
        EXPECT_THAT(ids(posted()),
                    ElementsAre(VarUserSetupRenameChanged, VarUserSetupFileCheckDoneChanged));
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), 1u) << index;
        EXPECT_TRUE(
            testsupport::isLogLine(lines[0], gen::Error, "eventhandling.cpp",
                                   "Could not handle VarUserSetupRenameChanged: List index is "
                                   "out of range"));
    }
}

TEST_F(UserSetupsTest, DeletingRemovesTheSelectedFileButNeverAFolder) {
    auto& setups = gen::memUserSetups();
    std::filesystem::create_directory(inFolder("folder"));
    writeFile(inFolder("Old.stp"), "old");
    service->updateUserSettingList();
    posted();
    setups.UserSetupSelectedFileIndex = 1;
    request(setups.UserSetupDelete, VarUserSetupDeleteChanged);
    EXPECT_FALSE(exists(inFolder("Old.stp")));
    EXPECT_FALSE(setups.UserSetupDelete);
    EXPECT_THAT(ids(posted()), ElementsAre(VarUserSetupDeleteChanged));

    setups.UserSetupSelectedFileIndex = 0;
    testsupport::KmsgCapture log;
    request(setups.UserSetupDelete, VarUserSetupDeleteChanged);
    EXPECT_TRUE(exists(inFolder("folder")));
    EXPECT_FALSE(setups.UserSetupDelete);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Error, "usersetups.cpp",
                                       "Not deleting /var//SETUPS/folder: it is a folder"));
}

TEST_F(UserSetupsTest, LoadingTheSelectedSetupAppliesItAndRewritesTheCurrentFile) {
    auto& setups = gen::memUserSetups();
    writeFile(inFolder("Studio.stp"), "{\"ZoomTorque\": 4}");
    service->updateUserSettingList();
    setups.UserSetupSelectedFileIndex = 0;
    request(setups.UserSetupAcceptLoadFileName, VarUserSetupAcceptLoadFileNameChanged);
    EXPECT_EQ(gen::memPersistent().ZoomTorque, 4);
    EXPECT_NE(readFile(CURRENT).find("\"ZoomTorque\": 4\n}"), std::string::npos);
    EXPECT_FALSE(setups.UserSetupAcceptLoadFileName);
    EXPECT_EQ(ids(posted()).back(), VarUserSetupAcceptLoadFileNameChanged);
}

TEST_F(UserSetupsTest, LoadingAnIndexOutOfRangeIsAnError) {
    auto& setups = gen::memUserSetups();
    service->updateUserSettingList();
    posted();
    for (int index : {-1, 0}) {
        testsupport::KmsgCapture log;
        setups.UserSetupSelectedFileIndex = index;
        request(setups.UserSetupAcceptLoadFileName, VarUserSetupAcceptLoadFileNameChanged);
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Error, "usersetups.cpp",
                                           "List index is out of range"));
        EXPECT_FALSE(setups.UserSetupAcceptLoadFileName);
        EXPECT_THAT(ids(posted()), ElementsAre(VarUserSetupAcceptLoadFileNameChanged));
    }
}

TEST_F(UserSetupsTest, ACutNameIsWhatLoadRenameAndDeleteUse) {
    auto& setups = gen::memUserSetups();
    const std::string longName = inFolder("abcdefghijklmnopqrstuvwxyz.stp");
    writeFile(longName, "{\"ZoomTorque\": 4}");
    service->updateUserSettingList();
    setups.UserSetupSelectedFileIndex = 0;
    gen::memDeviceState().FileNotFound = false;
    testsupport::KmsgCapture log;
    request(setups.UserSetupAcceptLoadFileName, VarUserSetupAcceptLoadFileNameChanged);
    EXPECT_EQ(gen::memPersistent().ZoomTorque, 2);
    EXPECT_TRUE(gen::memDeviceState().FileNotFound);
    EXPECT_THAT(messages(log.lines()),
                ElementsAre("Could not open settings file: abcdefghijklmnopqrstu"));

    request(setups.UserSetupDelete, VarUserSetupDeleteChanged);
    EXPECT_TRUE(exists(longName));

    setName("Short");
    setups.UserSetupFileCheckDone = false;
    posted();
    testsupport::KmsgCapture renameLog;
    EXPECT_NO_THROW(request(setups.UserSetupRename, VarUserSetupRenameChanged));
    EXPECT_TRUE(exists(longName));
    EXPECT_FALSE(exists(inFolder("Short.stp")));
    EXPECT_FALSE(setups.UserSetupRename);
    EXPECT_TRUE(setups.UserSetupFileCheckDone);
    EXPECT_STREQ(setups.UserSetupSave.data(), "Short");
    EXPECT_THAT(ids(posted()),
                ElementsAre(VarUserSetupRenameChanged, VarUserSetupFileCheckDoneChanged));
    const auto lines = renameLog.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(testsupport::isLogLine(
        lines[0], gen::Error, "eventhandling.cpp",
        "Could not handle VarUserSetupRenameChanged: filesystem error: cannot rename: No such "
        "file or directory [/var//SETUPS/abcdefghijklmnopqrstu] [/var//SETUPS/Short.stp]"));
}

TEST_F(UserSetupsTest, ANewNameIsProposedFromTheClockAfterClearingTheFlag) {
    auto& setups = gen::memUserSetups();
    const std::time_t before = std::time(nullptr);
    request(setups.UserSetupAddNew, VarUserSetupAddNewChanged);
    const std::time_t after = std::time(nullptr);
    const std::string proposed = setups.UserSetupSave.data();
    EXPECT_TRUE(proposed == SettingsManager::proposedSetupName(before).data() ||
                proposed == SettingsManager::proposedSetupName(after).data())
        << proposed;
    EXPECT_FALSE(setups.UserSetupAddNew);
    EXPECT_THAT(ids(posted()), ElementsAre(VarUserSetupAddNewChanged, VarUserSetupSaveChanged));

    request(setups.UserSetupAddNew, VarUserSetupAddNewChanged);
    EXPECT_THAT(ids(posted()), ElementsAre(VarUserSetupAddNewChanged, VarUserSetupSaveChanged));
}

TEST(ProposedSetupName, IsTheLocalTimeAsYearMonthDayUnderscoreHourMinute) {
    std::tm utc{};
    utc.tm_year = 2026 - 1900;
    utc.tm_mon = 10;
    utc.tm_mday = 15;
    utc.tm_hour = 14;
    utc.tm_min = 12;
    const std::time_t when = timegm(&utc);
    ::setenv("TZ", "UTC0", 1);
    EXPECT_STREQ(SettingsManager::proposedSetupName(when).data(), "261115_1412");
    ::setenv("TZ", "XYZ-2", 1);
    EXPECT_STREQ(SettingsManager::proposedSetupName(when).data(), "261115_1612");
    ::unsetenv("TZ");
}

TEST_F(UserSetupsTest, RequestsWhoseFlagIsClearedDoNothing) {
    auto& setups = gen::memUserSetups();
    writeFile(inFolder("Old.stp"), "old");
    service->updateUserSettingList();
    posted();
    setups.UserSetupSelectedFileIndex = 0;
    setName("New");
    for (EventId event :
         {VarUserSetupAcceptLoadFileNameChanged, VarUserSetupAcceptSaveFileNameChanged,
          VarUserSetupAddNewChanged, VarUserSetupRenameChanged, VarUserSetupOverwriteFileChanged,
          VarUserSetupDeleteChanged, VarFactoryResetChanged}) {
        service->handleEvent(Notify{event, 0, 0});
    }
    EXPECT_THAT(posted(), IsEmpty());
    EXPECT_EQ(readFile(inFolder("Old.stp")), "old");
    EXPECT_FALSE(exists(inFolder("New.stp")));
    EXPECT_STREQ(setups.UserSetupSave.data(), "New");
    EXPECT_FALSE(service->isDirty());
}

class RefusedRequestsTest : public UserSetupsTest {
protected:
    void SetUp() override {
        UserSetupsTest::SetUp();
        writeFile(inFolder("Old.stp"), "old");
        service->updateUserSettingList();
        gen::memUserSetups().UserSetupSelectedFileIndex = 0;
        posted();
    }

    // Asserts that the only log line is the refusal of `event` for `reason`.
    static void expectRefusal(const testsupport::KmsgCapture& log, const char* event,
                              const std::string& reason) {
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_TRUE(
            testsupport::isLogLine(lines[0], gen::Error, "eventhandling.cpp",
                                   std::string("Could not handle ") + event + ": " + reason))
            << lines[0];
    }

    // The folder holds what the fixture made, nothing else; nothing escaped.
    static void expectFolderUnchanged() {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(SETUPS)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        EXPECT_THAT(names, ElementsAre(".current.stp", "Old.stp"));
        EXPECT_EQ(readFile(inFolder("Old.stp")), "old");
        EXPECT_FALSE(exists("/var/escaped.stp"));
        EXPECT_FALSE(exists("/escaped.stp"));
    }
};

TEST_F(RefusedRequestsTest, NamesThatAreNoPlainFileNamesAreRefusedBySaveRenameAndOverwrite) {
    auto& setups = gen::memUserSetups();
    for (const char* name : {"../escaped", "/", ".", "..", "a/b", ".hidden", "../../escaped"}) {
        SCOPED_TRACE(name);
        const std::string reason =
            std::string("the user-setup name \"") + name + "\" is not a plain file name";
        struct Case {
            bool* flag;
            EventId event;
            const char* eventName;
            bool pending;
        };
        for (const Case& step :
             {Case{&setups.UserSetupAcceptSaveFileName, VarUserSetupAcceptSaveFileNameChanged,
                   "VarUserSetupAcceptSaveFileNameChanged", false},
              Case{&setups.UserSetupRename, VarUserSetupRenameChanged, "VarUserSetupRenameChanged",
                   false},
              Case{&setups.UserSetupOverwriteFile, VarUserSetupOverwriteFileChanged,
                   "VarUserSetupOverwriteFileChanged", false},
              Case{&setups.UserSetupOverwriteFile, VarUserSetupOverwriteFileChanged,
                   "VarUserSetupOverwriteFileChanged", true}}) {
            if (step.pending) {
                // A rename that met an existing file leaves the overwrite pending as a rename.
                writeFile(inFolder("Taken.stp"), "taken");
                setName("Taken");
                request(setups.UserSetupRename, VarUserSetupRenameChanged);
                std::filesystem::remove(inFolder("Taken.stp"));
                gen::memDeviceState().FileAlreadyExists = false;
            }
            setName(name);
            setups.UserSetupFileCheckDone = false;
            posted();
            testsupport::KmsgCapture log;
            request(*step.flag, step.event);
            expectRefusal(log, step.eventName, reason);
            EXPECT_FALSE(*step.flag);
            EXPECT_TRUE(setups.UserSetupFileCheckDone);
            EXPECT_FALSE(gen::memDeviceState().FileAlreadyExists);
            EXPECT_STREQ(setups.UserSetupSave.data(), name);
            const std::vector<EventId> order = ids(posted());
            EXPECT_THAT(order, Contains(VarUserSetupFileCheckDoneChanged));
            EXPECT_THAT(order, Not(Contains(VarFileAlreadyExistsChanged)));
            expectFolderUnchanged();
        }
    }
}

TEST_F(RefusedRequestsTest, ListEntriesOutsideTheFolderAreRefusedByLoadDeleteAndRename) {
    auto& setups = gen::memUserSetups();
    writeFile("/var/victim.stp", "{\"FocusTorque\": 4}");
    for (const char* entry : {"../victim.stp", ".current.stp", "", "/var/victim.stp"}) {
        SCOPED_TRACE(entry);
        auto& slot = setups.UserSetupList[0].UserSetupFileName;
        std::snprintf(slot.data(), slot.size(), "%s", entry);
        const std::string reason =
            std::string("list entry \"") + entry + "\" is not a file of the settings folder";
        testsupport::KmsgCapture log;
        request(setups.UserSetupDelete, VarUserSetupDeleteChanged);
        expectRefusal(log, "VarUserSetupDeleteChanged", reason);
        EXPECT_FALSE(setups.UserSetupDelete);
        testsupport::KmsgCapture loadLog;
        request(setups.UserSetupAcceptLoadFileName, VarUserSetupAcceptLoadFileNameChanged);
        expectRefusal(loadLog, "VarUserSetupAcceptLoadFileNameChanged", reason);
        EXPECT_FALSE(setups.UserSetupAcceptLoadFileName);
        setName("New");
        testsupport::KmsgCapture renameLog;
        request(setups.UserSetupRename, VarUserSetupRenameChanged);
        expectRefusal(renameLog, "VarUserSetupRenameChanged", reason);
        EXPECT_EQ(gen::memPersistent().FocusTorque, 2);
        EXPECT_EQ(readFile("/var/victim.stp"), "{\"FocusTorque\": 4}");
        expectFolderUnchanged();
    }
}

TEST_F(RefusedRequestsTest, DeletingAnIndexOutsideTheListIsRefused) {
    auto& setups = gen::memUserSetups();
    for (int index : {-1, 1, 19, 20}) {
        setups.UserSetupSelectedFileIndex = index;
        testsupport::KmsgCapture log;
        request(setups.UserSetupDelete, VarUserSetupDeleteChanged);
        expectRefusal(log, "VarUserSetupDeleteChanged", "List index is out of range");
        EXPECT_FALSE(setups.UserSetupDelete);
        expectFolderUnchanged();
    }
}

TEST_F(RefusedRequestsTest, LoadingAFileThatIsNoSettingsDocumentChangesNothing) {
    auto& setups = gen::memUserSetups();
    writeFile(inFolder("notes.txt"), "Remember: focus pulls at 10:00.\n");
    std::filesystem::create_directory(inFolder("A folder"));
    service->updateUserSettingList();
    gen::memDeviceState().FileNotFound = false;
    for (const char* entry : {"notes.txt", "Old.stp", "A folder"}) {
        SCOPED_TRACE(entry);
        int index = 0;
        while (std::string(setups.UserSetupList[index].UserSetupFileName.data()) != entry) {
            ++index;
        }
        setups.UserSetupSelectedFileIndex = index;
        testsupport::KmsgCapture log;
        EXPECT_NO_THROW(
            request(setups.UserSetupAcceptLoadFileName, VarUserSetupAcceptLoadFileNameChanged));
        EXPECT_FALSE(setups.UserSetupAcceptLoadFileName);
        EXPECT_EQ(gen::memPersistent().FocusTorque, 2);
        EXPECT_THAT(messages(log.lines()), Not(IsEmpty()));
    }
    EXPECT_TRUE(gen::memDeviceState().FileNotFound);
}

TEST_F(RefusedRequestsTest, AUserSetupThatCannotBeWrittenIsNotAnsweredAsSaved) {
    auto& setups = gen::memUserSetups();
    // A folder in the place of the temporary file makes the write fail.
    std::filesystem::create_directory(inFolder(".Studio.stp.tmp"));
    setName("Studio");
    testsupport::KmsgCapture log;
    request(setups.UserSetupAcceptSaveFileName, VarUserSetupAcceptSaveFileNameChanged);
    std::filesystem::remove(inFolder(".Studio.stp.tmp"));
    EXPECT_FALSE(exists(inFolder("Studio.stp")));
    EXPECT_STREQ(setups.UserSetupSave.data(), "Studio");
    EXPECT_TRUE(setups.UserSetupFileCheckDone);
    EXPECT_FALSE(setups.UserSetupAcceptSaveFileName);
    EXPECT_THAT(ids(posted()), ElementsAre(VarUserSetupFileCheckDoneChanged,
                                           VarUserSetupAcceptSaveFileNameChanged));
    EXPECT_THAT(messages(log.lines()),
                ElementsAre("Could not save Studio.stp: create /var//SETUPS/.Studio.stp.tmp: File "
                            "exists",
                            "Could not handle VarUserSetupAcceptSaveFileNameChanged: the user "
                            "setup was not saved"));
    expectFolderUnchanged();

    std::filesystem::create_directory(inFolder(".Old.stp.tmp"));
    setName("Old");
    setups.UserSetupFileCheckDone = false;
    request(setups.UserSetupOverwriteFile, VarUserSetupOverwriteFileChanged);
    std::filesystem::remove(inFolder(".Old.stp.tmp"));
    EXPECT_STREQ(setups.UserSetupSave.data(), "Old");
    EXPECT_TRUE(setups.UserSetupFileCheckDone);
    expectFolderUnchanged();
}

TEST_F(RefusedRequestsTest, TheSameRequestAHundredTimesIsAnsweredEveryTime) {
    auto& setups = gen::memUserSetups();
    for (int i = 0; i < 100; ++i) {
        setName("../escaped");
        request(setups.UserSetupAcceptSaveFileName, VarUserSetupAcceptSaveFileNameChanged);
        EXPECT_FALSE(setups.UserSetupAcceptSaveFileName);
        setups.UserSetupSelectedFileIndex = -1;
        request(setups.UserSetupRename, VarUserSetupRenameChanged);
        EXPECT_FALSE(setups.UserSetupRename);
        request(setups.UserSetupAcceptLoadFileName, VarUserSetupAcceptLoadFileNameChanged);
        EXPECT_FALSE(setups.UserSetupAcceptLoadFileName);
    }
    expectFolderUnchanged();
}

TEST_F(RefusedRequestsTest, ANameWithoutTerminatorIsReadNoFurtherThanItsVariable) {
    auto& setups = gen::memUserSetups();
    setups.UserSetupSave.fill('n');
    request(setups.UserSetupAcceptSaveFileName, VarUserSetupAcceptSaveFileNameChanged);
    EXPECT_TRUE(exists(inFolder(std::string(18, 'n') + ".stp")));
    EXPECT_EQ(setups.UserSetupSave[0], '\0');
}

// The dialogue on its own: a request it cannot carry out is answered with the
// reason as a value, and it logs nothing itself.
class UserSetupDialogueTest : public ServiceClassTest {
protected:
    void SetUp() override { ASSERT_TRUE(folder.prepare()); }
};

TEST_F(UserSetupDialogueTest, ANewNameIsProposedFromTheClockItIsGiven) {
    auto& setups = memories.userSetups;
    setups.UserSetupAddNew = true;
    EXPECT_TRUE(dialogue.proposeNew().ok());
    EXPECT_STREQ(setups.UserSetupSave.data(), "261115_1412");
    EXPECT_FALSE(setups.UserSetupAddNew);
    EXPECT_THAT(ids(posted()), ElementsAre(VarUserSetupAddNewChanged, VarUserSetupSaveChanged));
    wallTime += 24 * 60 * 60 + 60;
    setups.UserSetupAddNew = true;
    EXPECT_TRUE(dialogue.proposeNew().ok());
    EXPECT_STREQ(setups.UserSetupSave.data(), "261116_1413");
}

TEST_F(UserSetupDialogueTest, ARefusedRequestIsAReasonAndLogsNothing) {
    auto& setups = gen::memUserSetups();
    dialogue.openFolder();
    dialogue.updateList();
    setups.UserSetupSelectedFileIndex = 3;
    setups.UserSetupRename = true;
    setName("New");
    testsupport::KmsgCapture log;
    EXPECT_EQ(errorText(dialogue.rename()), "List index is out of range");
    setName("../escaped");
    setups.UserSetupAcceptSaveFileName = true;
    EXPECT_EQ(errorText(dialogue.save()),
              "the user-setup name \"../escaped\" is not a plain file name");
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_FALSE(exists("/var/escaped.stp"));
}

TEST_F(UserSetupDialogueTest, ACarriedOutOrIgnoredRequestHasNoReason) {
    auto& setups = gen::memUserSetups();
    dialogue.openFolder();
    setName("Studio");
    setups.UserSetupAcceptSaveFileName = true;
    EXPECT_TRUE(dialogue.save().ok());
    EXPECT_TRUE(exists(inFolder("Studio.stp")));
    EXPECT_FALSE(setups.UserSetupAcceptSaveFileName);
    // The flag is cleared: nothing to do, no reason.
    EXPECT_TRUE(dialogue.save().ok());
    EXPECT_TRUE(dialogue.remove().ok());
}

TEST_F(UserSetupDialogueTest, AnExistingTargetWaitsForTheConfirmationAsARenameOrASave) {
    auto& setups = gen::memUserSetups();
    writeFile(inFolder("Old.stp"), "{\"ZoomTorque\": 4}");
    writeFile(inFolder("Taken.stp"), "taken");
    dialogue.openFolder();
    dialogue.updateList();
    setups.UserSetupSelectedFileIndex = 0;
    setName("Taken");
    setups.UserSetupRename = true;
    EXPECT_TRUE(dialogue.rename().ok());
    EXPECT_TRUE(gen::memDeviceState().FileAlreadyExists);
    setups.UserSetupOverwriteFile = true;
    EXPECT_TRUE(dialogue.overwrite().ok());
    EXPECT_FALSE(exists(inFolder("Old.stp")));
    EXPECT_EQ(readFile(inFolder("Taken.stp")), "{\"ZoomTorque\": 4}");
    EXPECT_STREQ(setups.UserSetupSave.data(), "");
}
