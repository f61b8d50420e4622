#include "memtooldevice.h"

#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"
#include "settings-service/memories.h"
#include "settings-service/serverconnection.h"

#include <csignal>
#include <cstring>
#include <limits>
#include <optional>
#include <stdexcept>

namespace memtooltest {

uint8_t* variableAddress(const std::string& memory, const std::string& variable, uint32_t element) {
    const uint32_t m = Introspection::getMemIndex(memory);
    const std::optional<uint32_t> v = Introspection::findVarIndex(m, variable);
    if (!v) {
        throw std::logic_error("no variable " + variable);
    }
    const VariableDescriptor& entry = MEMORY_ARRAY[m].variables[*v];
    return entry.memoryBase + entry.offset + element * entry.elementSize;
}

int32_t readInt(const uint8_t* address) {
    int32_t value;
    std::memcpy(&value, address, sizeof value);
    return value;
}

uint8_t* memberAddress(const std::string& memory, const std::string& variable, uint32_t element,
                       const std::string& member) {
    const uint32_t m = Introspection::getMemIndex(memory);
    const VariableDescriptor& entry =
        MEMORY_ARRAY[m].variables[*Introspection::findVarIndex(m, variable)];
    for (const StructInfo& info : *entry.structMembers) {
        if (member == info.name) {
            return variableAddress(memory, variable, element) + info.offset;
        }
    }
    throw std::logic_error("no member " + member);
}

namespace {

template <typename T> void put(uint8_t* address, T value) {
    std::memcpy(address, &value, sizeof value);
}

} // namespace

void writeDumpFixture() {
    put<int32_t>(variableAddress("MemPersistent", "AUXTorque"), -7);
    put<float>(variableAddress("MemPersistent", "CircleofConfusion"), 1e-7f);
    put<float>(variableAddress("MemPersistent", "PreMarkedIrisEnd"), 123456.789f);
    put<float>(variableAddress("MemPersistent", "LensMarkerAbsFocusValue0"), -0.0f);
    put<float>(variableAddress("MemPersistent", "LensMarkerAbsFocusValue1"), 3.4e38f);
    put<float>(variableAddress("MemPersistent", "LensMarkerAbsFocusValue2"),
               std::numeric_limits<float>::quiet_NaN());
    put<float>(variableAddress("MemPersistent", "LensMarkerAbsFocusValue3"),
               std::numeric_limits<float>::infinity());
    put<float>(variableAddress("MemPersistent", "LensMarkerAbsFocusValue4"), 0.1f);
    std::strcpy(
        reinterpret_cast<char*>(variableAddress("MemPersistent", "LensFileFavouriteFolder")),
        "a\"b\\c\nd\te\x01"
        "f \xc3\xa9/");
    put<uint32_t>(variableAddress("MemPersistent", "CinefadeDisplayModeValue"), 7);
    *variableAddress("MemPersistent", "BluetoothPower") = 2;
    uint8_t* buffer = variableAddress("MemPersistent", "MruLensFileList");
    for (int i = 0; i < 64; ++i) {
        buffer[i] = static_cast<uint8_t>(i * 5);
    }
    put<int32_t>(variableAddress("MemHwControl", "KnobLinearizationTable", 2), 7);
    put<int32_t>(variableAddress("MemHwControl", "KnobLinearizationTable", 3), -42);
    std::strcpy(reinterpret_cast<char*>(
                    memberAddress("MemPersistent", "RecentLensFiles", 1, "LensFileName")),
                "Tele 50mm \xc3\xa9");
    put<int32_t>(memberAddress("MemPersistent", "RecentLensFiles", 1, "LensFileUseCount"), 5);
    put<float>(memberAddress("MemPersistent", "RecentLensFiles", 1, "LensFileMinFocus"), 0.45f);
    *memberAddress("MemPersistent", "RecentLensFiles", 1, "LensFileHasZoom") = 1;
    put<uint32_t>(memberAddress("MemPersistent", "RecentLensFiles", 1, "LensFileBrand"), 3);
}

void MemtoolDevice::SetUp() {
    broker = std::make_unique<brokertest::BrokerProcess>();
    ASSERT_TRUE(broker->running());
    gen::init();
    gen::closeServerConnection();
    observer = std::make_unique<brokertest::RawClient>();
    for (EventId id : OBSERVED) {
        observer->subscribe(id);
    }
    observer->sync();
}

void MemtoolDevice::TearDown() {
    observer.reset();
    if (broker->running()) {
        EXPECT_EQ(broker->stop(SIGTERM), 0);
    }
}

std::vector<Notify> MemtoolDevice::events() {
    // A record that another client sent before this call is in the broker's
    // input before the first sync's request; the broker has forwarded it by
    // the time it answers the second.
    observer->sync();
    observer->sync();
    return observer->receive(std::numeric_limits<size_t>::max(), 0);
}

} // namespace memtooltest
