#include "connectedmemories.h"

#include "settings-service/eventpoll.h"
#include "settings-service/memories.h"
#include "settings-service/serverconnection.h"

void ConnectedMemories::SetUpTestSuite() {
    gen::initMemories();
}

void ConnectedMemories::SetUp() {
    broker = std::make_unique<BrokerDouble>();
    gServerConnection = new ServerConnection(gen::getEventPoll());
    broker->received();
}

void ConnectedMemories::TearDown() {
    gen::closeServerConnection();
    broker.reset();
}
