#include "catalogueenvironment.h"

#include "settings-service/memories.h"
#include "settings-service/serverconnection.h"

#include <gtest/gtest.h>

namespace {

BrokerDouble* peer = nullptr;

class CatalogueEnvironment : public testing::Environment {
public:
    void SetUp() override {
        peer = new BrokerDouble;
        gen::init();
        peer->received();
    }
    void TearDown() override {
        gen::closeServerConnection();
        delete peer;
        peer = nullptr;
    }
};

[[maybe_unused]] testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(new CatalogueEnvironment);

} // namespace

BrokerDouble& brokerPeer() {
    return *peer;
}
