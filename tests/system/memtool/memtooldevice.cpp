#include "memtooldevice.h"

#include "catalogue.h"
#include "introspection.h"
#include "memories.h"
#include "serverconnection.h"

#include <csignal>
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
