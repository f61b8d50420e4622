// The device that memtool works against in these tests: a running broker,
// the memories created with their defaults by this test program (the
// catalogue's own start-up, whose connection is then closed), and an
// observer connection subscribed to the events that the tests look at.
#pragma once

#include "brokerprocess.h"
#include "rawclient.h"
#include "settings-service/notify.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace memtooltest {

// The address of a variable's element in this program's mapping.
uint8_t* variableAddress(const std::string& memory, const std::string& variable,
                         uint32_t element = 0);

// The 32-bit int stored at `address`.
int32_t readInt(const uint8_t* address);

// The address of a struct member in element `element` of a struct variable.
uint8_t* memberAddress(const std::string& memory, const std::string& variable, uint32_t element,
                       const std::string& member);

// Puts the memories into the fixed state whose dump the tests compare with a
// copy kept in the tree: the defaults, and values chosen to test the output's
// corners (negative and out-of-range numbers, tiny, huge, negative-zero and
// non-finite floats, texts that JSON must escape, an enum beyond its entries,
// a bool byte of 2, buffer bytes, array elements and struct members).  The
// values are written straight into the memories, without events.
void writeDumpFixture();

class MemtoolDevice : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Every observed record that the broker forwarded before now, oldest first.
    std::vector<Notify> events();

    std::unique_ptr<brokertest::BrokerProcess> broker;
    std::unique_ptr<brokertest::RawClient> observer;
};

// The events that the observer subscribes to.
inline constexpr EventId OBSERVED[] = {
    VarAUXTorqueChanged,
    VarLensFileFavouriteFolderChanged,
    VarCinefadeDisplayModeValueChanged,
    VarRecentLensFilesChanged,
    VarKnobLinearizationTableChanged,
    VarFocusTorqueChanged,
    VarUserSetupAddNewChanged,
    VarBluetoothPowerChanged,
    VarCircleofConfusionChanged,
    VarMruLensFileListChanged,
};

} // namespace memtooltest
