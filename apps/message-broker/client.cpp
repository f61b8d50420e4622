#include "client.h"

#include "broker.h"

namespace {

std::string describe(int fd, const ucred& credentials) {
    return std::to_string(fd) + " (pid " + std::to_string(credentials.pid) + ", uid " +
           std::to_string(credentials.uid) + ", gid " + std::to_string(credentials.gid) + ")";
}

} // namespace

Client::Client(Broker& broker, int fd, const ucred& credentials)
    : broker(broker), fd(fd), credentials(credentials), name(describe(fd, credentials)) {}

void Client::event(EventType type) {
    broker.serve(*this, type);
}
