// The plain-type getters and setters and setVariable, on the real memories with the broker double
// that records every posted event.
#include "connectedmemories.h"
#include "kmsgcapture.h"
#include "logline.h"
#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"
#include "settings-service/memories.h"
#include "settings-service/setters.h"

#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace {

class Setters : public ConnectedMemories {
protected:
    // (memory, variable) of a variable by name.
    static std::pair<uint32_t, uint32_t> locate(const char* name) {
        for (uint32_t m = 0; m < MEMORY_ARRAY_SIZE; ++m) {
            if (const std::optional<uint32_t> v = Introspection::findVarIndex(m, name)) {
                return {m, *v};
            }
        }
        throw std::runtime_error(std::string("no variable ") + name);
    }

    static const VariableDescriptor& entry(const char* name) {
        auto [m, v] = locate(name);
        return MEMORY_ARRAY[m].variables[v];
    }

    // Sets through the variable's own setter with its own Notify (or the one given).
    static std::string set(const char* name, const char* text) {
        return set(name, text, entry(name).event);
    }
    static std::string set(const char* name, const char* text, Notify notify) {
        auto [m, v] = locate(name);
        const VariableDescriptor& e = MEMORY_ARRAY[m].variables[v];
        return e.setter(e.memoryBase, m, v, notify, text);
    }
    static std::string get(const char* name, int index = 0) {
        const VariableDescriptor& e = entry(name);
        return e.getter(e.memoryBase + e.offset, index);
    }

    std::vector<uint32_t> postedIds() {
        std::vector<uint32_t> ids;
        for (const Notify& notify : broker->received()) {
            ids.push_back(notify.id);
        }
        return ids;
    }
};

using Ids = std::vector<uint32_t>;

TEST_F(Setters, IntTextAlreadyHeldPostsNothing) {
    EXPECT_EQ(set("FocusTorque", "3"), "");
    EXPECT_EQ(postedIds(), Ids{VarFocusTorqueChanged});
    EXPECT_EQ(set("FocusTorque", "3"), "");
    EXPECT_EQ(postedIds(), Ids{});
    EXPECT_EQ(get("FocusTorque"), "3");
}

TEST_F(Setters, IntConversionDetectsTheBaseAndStopsAtTheFirstNonDigit) {
    EXPECT_EQ(set("LastKnownFocusValue", "1e3"), "");
    EXPECT_EQ(gen::memPersistent().LastKnownFocusValue, 1);
    EXPECT_EQ(set("LastKnownFocusValue", "0x1F"), "");
    EXPECT_EQ(gen::memPersistent().LastKnownFocusValue, 31);
    EXPECT_EQ(set("LastKnownFocusValue", "010"), "");
    EXPECT_EQ(gen::memPersistent().LastKnownFocusValue, 8);
    EXPECT_EQ(set("LastKnownFocusValue", "x"), "Can't convert x to int");
    EXPECT_EQ(gen::memPersistent().LastKnownFocusValue, 8);
    EXPECT_EQ(set("LastKnownFocusValue", "99999999999"), "Can't convert 99999999999 to int");
}

TEST_F(Setters, IndexedWritesOneElementAndOtherAddressingWritesNothing) {
    gen::memHwControl().TouchCalibration = {};
    broker->received();
    Notify element = entry("TouchCalibration").event;
    element.indexed = 1;
    element.index = 5;
    EXPECT_EQ(set("TouchCalibration", "-7", element), "");
    EXPECT_EQ(gen::memHwControl().TouchCalibration[5], -7);
    EXPECT_EQ(gen::memHwControl().TouchCalibration[0], 0);
    EXPECT_EQ(get("TouchCalibration", 5), "-7");
    std::vector<Notify> posted = broker->received();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].indexed, 1u);
    EXPECT_EQ(posted[0].index, 5u);
    Notify other = element;
    other.indexed = 2;
    EXPECT_EQ(set("TouchCalibration", "x", other), "");
    EXPECT_EQ(set("TouchCalibration", "9", other), "");
    EXPECT_EQ(gen::memHwControl().TouchCalibration[0], 0);
    EXPECT_EQ(postedIds(), Ids{});
}

TEST_F(Setters, FloatsReadWithSixDecimalsAndCompareByBitPattern) {
    EXPECT_EQ(set("CircleofConfusion", "0.03"), "");
    EXPECT_EQ(get("CircleofConfusion"), "0.030000");
    EXPECT_EQ(set("CircleofConfusion", "0.03"), "");
    EXPECT_EQ(postedIds(), Ids{VarCircleofConfusionChanged});
    EXPECT_EQ(set("LensMarkerAbsFocusValue0", "0"), "");
    broker->received();
    EXPECT_EQ(set("LensMarkerAbsFocusValue0", "-0"), "");
    EXPECT_EQ(postedIds(), Ids{VarLensMarkerAbsFocusValue0Changed});
    EXPECT_EQ(set("CircleofConfusion", "abc"), "Can't convert abc to float");
}

TEST_F(Setters, BoolsTakeOnlyTrueOrFalse) {
    EXPECT_EQ(set("SoundMute", "TRUE"), "Value has to be 'true' or 'false'");
    EXPECT_EQ(set("SoundMute", "true"), "");
    EXPECT_EQ(get("SoundMute"), "true");
    EXPECT_EQ(set("SoundMute", "true"), "");
    EXPECT_EQ(postedIds(), Ids{VarSoundMuteChanged});
    EXPECT_EQ(set("SoundMute", "false"), "");
    EXPECT_EQ(gen::memPersistent().SoundMute, false);
    EXPECT_EQ(postedIds(), Ids{VarSoundMuteChanged});
}

TEST_F(Setters, StringsAreCutToTheirCapacityAndAlwaysPost) {
    EXPECT_EQ(set("ProductName", "abcdefghijklmnopqrstuvwxyz"), "");
    EXPECT_EQ(get("ProductName"), "abcdefghijklmnopqrs");
    EXPECT_EQ(set("ProductName", "abcdefghijklmnopqrs"), "");
    EXPECT_EQ(postedIds(), (Ids{VarProductNameChanged, VarProductNameChanged}));
}

TEST_F(Setters, BufferOfTwoBytesFromHexDigitsOfEitherCase) {
    EXPECT_EQ(set("RadioModuleList", "0aFf"), "");
    EXPECT_EQ(gen::memPersistent().RadioModuleList[0], 0x0a);
    EXPECT_EQ(gen::memPersistent().RadioModuleList[1], 0xff);
    EXPECT_EQ(get("RadioModuleList"), "0aff");
    EXPECT_EQ(set("RadioModuleList", "0aff"), "");
    EXPECT_EQ(postedIds(), (Ids{VarRadioModuleListChanged, VarRadioModuleListChanged}));
}

TEST_F(Setters, BufferTextEndsAtItsTerminator) {
    EXPECT_EQ(set("MruLensFileList", "0102"), "");
    EXPECT_EQ(get("MruLensFileList"), "0102" + std::string(124, '0'));
}

TEST_F(Setters, BadHexDigitKeepsTheBytesWrittenAndPostsNothing) {
    EXPECT_EQ(set("RadioModuleList", "0000"), "");
    broker->received();
    testsupport::KmsgCapture capture;
    EXPECT_EQ(set("RadioModuleList", "7fzz"), "Can't convert 7fzz to buffer");
    EXPECT_EQ(gen::memPersistent().RadioModuleList[0], 0x7f);
    EXPECT_EQ(gen::memPersistent().RadioModuleList[1], 0x00);
    EXPECT_EQ(postedIds(), Ids{});
    auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(
        testsupport::isLogLine(lines[0], gen::Error, "setters.cpp", "Not a valid hex digit: z"));
}

TEST_F(Setters, BufferReadersOfEveryLength) {
    EXPECT_EQ(get("HardwareOptions").size(), 2u);
    EXPECT_EQ(get("FpgaVersion").size(), 8u);
    EXPECT_EQ(get("RadioModuleAddress").size(), 14u);
    gen::memStatic().FpgaVersion = {0x01, 0xab, 0x00, 0xff};
    EXPECT_EQ(get("FpgaVersion"), "01ab00ff");
}

TEST_F(Setters, ReadOnlyBuffersRefuseWrites) {
    gen::memStatic().FpgaVersion = {1, 2, 3, 4};
    EXPECT_EQ(set("FpgaVersion", "00000000"), "FpgaVersion is read-only");
    EXPECT_EQ(get("FpgaVersion"), "01020304");
    EXPECT_EQ(postedIds(), Ids{});
}

TEST_F(Setters, SetVariableOfIntsAndFloats) {
    int32_t& torque = gen::memPersistent().ZoomTorque;
    setVariable<int32_t>(torque, entry("ZoomTorque").event, 1);
    setVariable<int32_t>(torque, entry("ZoomTorque").event, 1);
    EXPECT_EQ(torque, 1);
    float& open = gen::memPersistent().PreMarkedIrisOpen;
    setVariable<float>(open, entry("PreMarkedIrisOpen").event, 2.8f);
    setVariable<float>(open, entry("PreMarkedIrisOpen").event, 2.8f);
    EXPECT_EQ(postedIds(), (Ids{VarZoomTorqueChanged, VarPreMarkedIrisOpenChanged}));
}

TEST_F(Setters, SetVariableOfTextsOfEverySize) {
    setVariable<char, 20>(gen::memPersistent().ProductVersion, entry("ProductVersion").event,
                          "1.2.3");
    setVariable<char, 20>(gen::memPersistent().ProductVersion, entry("ProductVersion").event,
                          "1.2.3");
    setVariable<char, 18>(gen::memUserSetups().UserSetupSave, entry("UserSetupSave").event,
                          "a name of twenty-one");
    setVariable<char, 50>(gen::memStatic().ProductSerial, entry("ProductSerial").event, "SN-42");
    EXPECT_STREQ(gen::memPersistent().ProductVersion.data(), "1.2.3");
    EXPECT_STREQ(gen::memUserSetups().UserSetupSave.data(), "a name of twenty-");
    EXPECT_STREQ(gen::memStatic().ProductSerial.data(), "SN-42");
    EXPECT_EQ(postedIds(),
              (Ids{VarProductVersionChanged, VarUserSetupSaveChanged, VarProductSerialChanged}));
}

TEST_F(Setters, SetVariableOfATextLongerThanTheVariablePostsOnlyWhenTheCutTextChanges) {
    auto& name = gen::memPersistent().ProductName;
    const Notify event = entry("ProductName").event;
    setVariable<char, 20>(name, event, "ABCDEFGHIJKLMNOPQRSTUVWXY");
    setVariable<char, 20>(name, event, "ABCDEFGHIJKLMNOPQRSTUVWXY");
    setVariable<char, 20>(name, event, "ABCDEFGHIJKLMNOPQRSTUVWXZ");
    EXPECT_STREQ(name.data(), "ABCDEFGHIJKLMNOPQRS");
    EXPECT_EQ(postedIds(), (Ids{VarProductNameChanged}));

    setVariable<char, 20>(name, event, "ABCDEFGHIJKLMNOPQRST");
    setVariable<char, 20>(name, event, "ABCDEFGHIJKLMNOPQR");
    EXPECT_STREQ(name.data(), "ABCDEFGHIJKLMNOPQR");
    EXPECT_EQ(postedIds(), (Ids{VarProductNameChanged}));
}

TEST_F(Setters, SetVariableStoresAgainWhenTheStoredTextLacksItsTerminator) {
    auto& serial = gen::memStatic().ProductSerial;
    serial.fill('A');
    setVariable<char, 50>(serial, entry("ProductSerial").event, std::string(60, 'A').c_str());
    EXPECT_EQ(std::string(serial.data()), std::string(49, 'A'));
    EXPECT_EQ(postedIds(), (Ids{VarProductSerialChanged}));
}

} // namespace
