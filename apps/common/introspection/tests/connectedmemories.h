// A test fixture for converters that post events: the memories are created
// once per program with their defaults, and every test gets a fresh broker
// double with a connection to it, so `broker->received()` returns exactly what
// the test posted.
#pragma once

#include "brokerdouble.h"

#include <gtest/gtest.h>
#include <memory>

class ConnectedMemories : public testing::Test {
protected:
    static void SetUpTestSuite();
    void SetUp() override;
    void TearDown() override;

    std::unique_ptr<BrokerDouble> broker;
};
