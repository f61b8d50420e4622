// The service's subscriptions (gen::subscribeNotifications): the exact byte
// sequence a broker receives, and their effect in a running broker.
#include "brokerdouble.h"
#include "brokerprocess.h"
#include "rawclient.h"
#include "settings-service/log.h"
#include "settings-service/serverconnection.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace brokertest {
namespace {

// The service's events in the order it subscribes them.
std::vector<std::string> subscribedNames() {
    std::vector<std::string> names = {
        // user-setup requests
        "VarUserSetupAcceptLoadFileNameChanged", "VarUserSetupAcceptSaveFileNameChanged",
        "VarUserSetupAddNewChanged", "VarUserSetupRenameChanged", "VarFactoryResetChanged",
        "VarUserSetupOverwriteFileChanged", "VarUserSetupDeleteChanged",
        // persistent settings
        "VarLandingPageChanged", "VarProductNameChanged", "VarProductVersionChanged",
        "VarRadioPowerChanged", "VarRadioBoostChanged", "VarFocusTorqueChanged",
        "VarIrisTorqueChanged", "VarZoomTorqueChanged", "VarAUXTorqueChanged",
        "VarDMDTorqueChanged", "VarCinefadeTorqueChanged", "VarUserButton1Changed",
        "VarUserButton2Changed", "VarUserButton3Changed", "VarLandingPageChanged"};
    for (int button = 4; button <= 9; ++button) {
        names.push_back("VarUserButton" + std::to_string(button) + "Changed");
    }
    for (const char* name : {"VarKnobAssignmentChanged",
                             "VarSliderAssignmentChanged",
                             "VarForcePadAssignmentChanged",
                             "VarIrisScaleSideChanged",
                             "VarGuiDesignIsNightStyleChanged",
                             "VarDisplayBrightnessAutoChanged",
                             "VarDisplayBrightnessChanged",
                             "VarButtonBrightnessChanged",
                             "VarKnobBrightnessChanged",
                             "VarKnobColorChanged",
                             "VarLedRunBrightnessChanged",
                             "VarStealthModeChanged",
                             "VarKnobReverseChanged",
                             "VarSliderReverseChanged",
                             "VarForcePadReverseChanged",
                             "VarLastKnownFocusValueChanged",
                             "VarLastKnownIrisValueChanged",
                             "VarLastKnownZoomValueChanged",
                             "VarKnobLockChanged",
                             "VarSliderLockChanged",
                             "VarForcePadLockChanged",
                             "VarForcePadSpeedChanged",
                             "VarCircleofConfusionChanged",
                             "VarMenuScrollSpeedChanged",
                             "VarFuncLDDChanged",
                             "VarButtonsLockedChanged",
                             "VarSoundMuteChanged",
                             "VarSoundVolumeChanged",
                             "VarSoundTypeChanged",
                             "VarLensMarkerVibrationEnableChanged",
                             "VarOverrideVibrationEnableChanged",
                             "VarRecordingVibrationEnableChanged",
                             "VarEndSlateVibrationEnableChanged",
                             "VarNudgeVibrationEnableChanged",
                             "VarUserButtonVibrationEnableChanged",
                             "VarPreMarkedRingAutoDetChanged",
                             "VarMruLensFileListChanged",
                             "VarMruLensFileListSizeChanged",
                             "VarRecentLensFilesChanged",
                             "VarLensFileTransferCalibrateChanged",
                             "VarLensMarkerVibrationTypeChanged",
                             "VarOverrideVibrationTypeChanged",
                             "VarRecordingVibrationTypeChanged",
                             "VarNudgeVibrationTypeChanged",
                             "VarPreMarkedRingMeterChanged",
                             "VarPreMarkedRingFeetChanged",
                             "VarPreMarkedRingInchChanged",
                             "VarDisplayUnitChanged",
                             "VarBluetoothPowerChanged",
                             "VarGuiRotateChanged",
                             "VarDisableTouchscreenChanged",
                             "VarDisableForcePadChanged",
                             "VarLanguageChanged",
                             "VarFocusTableInvertedChanged",
                             "VarIrisTableInvertedChanged",
                             "VarZoomTableInvertedChanged",
                             "VarFocusTableHiddenChanged",
                             "VarIrisTableHiddenChanged",
                             "VarZoomTableHiddenChanged",
                             "VarEnableNextSupFeaturesChanged",
                             "VarPreMarkedEnumMetricChanged",
                             "VarPreMarkedEnumImperialChanged",
                             "VarRadioModuleListChanged",
                             "VarPreMarkedIrisAutoDetChanged",
                             "VarPreMarkedIrisOpenChanged",
                             "VarPreMarkedIrisEndChanged",
                             "VarPreMarkedIrisHasCloseChanged"}) {
        names.push_back(name);
    }
    // lens markers, eight each
    for (const char* kind : {"Focus", "Iris", "Zoom", "AbsFocus", "AbsIris"}) {
        for (int index = 0; index < 8; ++index) {
            names.push_back(std::string("VarLensMarker") + kind + "Value" + std::to_string(index) +
                            "Changed");
        }
    }
    names.push_back("VarLensMarkerColorInternalChanged");
    names.push_back("VarLensMarkerColorExternalChanged");
    // others
    names.push_back("VarLensFileFavouriteFolderChanged");
    names.push_back("VarCtmDampFactorChanged");
    for (int button = 4; button <= 9; ++button) {
        names.push_back("VarUserButton" + std::to_string(button) + "_NameChanged");
    }
    names.push_back("VarScreenSaverModeChanged");
    names.push_back("VarScreenSaverSpeedChanged");
    names.push_back("VarCinefadeDisplayModeValueChanged");
    return names;
}

uint32_t idOf(const std::string& name) {
    for (uint32_t id = 0; id < EVENT_ID_COUNT; ++id) {
        if (name == EVENT_NAME[id]) {
            return id;
        }
    }
    ADD_FAILURE() << name << " is not an event";
    return 0;
}

std::vector<uint32_t> subscribedIds() {
    std::vector<uint32_t> ids;
    for (const auto& name : subscribedNames()) {
        ids.push_back(idOf(name));
    }
    return ids;
}

class Subscriptions : public ::testing::Test {
protected:
    void SetUp() override { gComponentLogLevel = &level; }
    void TearDown() override {
        gen::closeServerConnection();
        gComponentLogLevel = nullptr;
    }
    gen::LogLevel level = gen::LogAll;
};

TEST_F(Subscriptions, TheBrokerReceives148SubscribePairsInOrder) {
    auto expectedIds = subscribedIds();
    ASSERT_EQ(expectedIds.size(), 148u);
    EXPECT_EQ(expectedIds[12], 167u) << "VarFocusTorqueChanged";

    BrokerDouble broker;
    gServerConnection = new ServerConnection(gen::getEventPoll());
    ASSERT_GE(broker.accept(), 0);
    gen::subscribeNotifications();

    std::vector<uint32_t> expected;
    for (uint32_t id : expectedIds) {
        expected.insert(expected.end(), {1, 0, 0, id, 0, 0});
    }
    std::vector<uint32_t> words = broker.receivedWords();
    ASSERT_EQ(words.size(), 148u * 6u) << "148 records of 24 bytes";
    for (size_t pair = 0; pair < 148; ++pair) {
        for (size_t word = 0; word < 6; ++word) {
            ASSERT_EQ(words[pair * 6 + word], expected[pair * 6 + word])
                << "pair " << pair << " (" << subscribedNames()[pair] << "), word " << word;
        }
    }
}

TEST_F(Subscriptions, InARunningBrokerTheyDeliverExactlyTheServicesEvents) {
    BrokerProcess broker;
    ASSERT_TRUE(broker.running());
    gServerConnection = new ServerConnection(gen::getEventPoll());
    gen::subscribeNotifications();
    constexpr uint32_t SENTINEL = TEST_ID_BASE + 4;
    gServerConnection->subscribe({EventId(SENTINEL), 0, 0});

    struct Recorder : ServerConnection::EventHandler {
        void handleEvent(const Notify& notify) override { ids.push_back(notify.id); }
        std::vector<uint32_t> ids;
    } recorder;
    gServerConnection->setEventHandler(&recorder);

    RawClient publisher;
    std::vector<Notify> every;
    for (uint32_t id = CalibAllMotor; id < EVENT_ID_COUNT; ++id) {
        if (id != SENTINEL) {
            every.push_back({EventId(id), 0, 0});
        }
    }
    every.push_back({EventId(SENTINEL), 0, 0});
    publisher.send(every);

    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while ((recorder.ids.empty() || recorder.ids.back() != SENTINEL) &&
           std::chrono::steady_clock::now() < end) {
        gen::getEventPoll().wait(10, true);
    }
    ASSERT_FALSE(recorder.ids.empty());
    ASSERT_EQ(recorder.ids.back(), SENTINEL);
    recorder.ids.pop_back();
    auto subscribed = subscribedIds();
    std::set<uint32_t> distinct(subscribed.begin(), subscribed.end());
    EXPECT_EQ(distinct.size(), 147u) << "VarLandingPageChanged is subscribed twice";
    EXPECT_EQ(recorder.ids, std::vector<uint32_t>(distinct.begin(), distinct.end()))
        << "each subscribed event once, in the order posted, and no other";
    gen::closeServerConnection();
    EXPECT_EQ(broker.stop(SIGTERM), 0);
}

} // namespace
} // namespace brokertest
