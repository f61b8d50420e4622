#include "connectedmemories.h"

#include "eventpoll.h"
#include "memories.h"
#include "serverconnection.h"

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
