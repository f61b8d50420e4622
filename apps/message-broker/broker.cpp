#include "broker.h"

#include "settings-service/log.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

bool wouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

int openSpare() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

// The broker's own user or root.
bool isPrivileged(const ucred& credentials) {
    return credentials.uid == 0 || credentials.uid == ::geteuid();
}

} // namespace

Broker::Broker(EventPoll& poll)
    : poll(poll), listenCallback([this](EventPoll::Callback::EventType) { accept(); }),
      writeCallback([this](EventPoll::Callback::EventType) { flushWritable(); }),
      scratch(READ_RECORDS + 1), spareFd(openSpare()),
      limits(ClientLimits::raiseDescriptorLimit()) {
    poll.add(endpoint.fd(), &listenCallback, EPOLLIN);
    poll.add(writeWatch.fd(), &writeCallback, EPOLLIN);
}

Broker::~Broker() {
    for (auto& client : clients) {
        if (client->open) {
            closeClient(*client);
        }
    }
    poll.remove(writeWatch.fd());
    poll.remove(endpoint.fd());
    ::close(spareFd);
}

void Broker::afterWakeUp() {
    misbehaviour.flush();
    for (auto& client : clients) {
        if (client->open && !client->watched && !client->output.empty()) {
            flush(*client);
        }
    }
    std::erase_if(clients, [](const std::unique_ptr<Client>& client) { return !client->open; });
}

void Broker::serve(Client& client, EventPoll::Callback::EventType type) {
    if (!client.open) {
        return;
    }
    if (type == EventPoll::Callback::Readable) {
        receive(client);
    } else if (type == EventPoll::Callback::Hangup) {
        while (receive(client)) {
        }
        if (client.open) {
            LOG(LogMost, "Client %s hung up", client.name.c_str());
            closeClient(client);
        }
    }
}

void Broker::accept() {
    for (;;) {
        int fd = ::accept4(endpoint.fd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EMFILE || errno == ENFILE) {
                refuseOne();
            } else if (!wouldBlock(errno) && errno != ECONNABORTED) {
                LOG(Warn, "accept: %s", std::strerror(errno));
            }
            return;
        }
        admit(fd);
    }
}

bool Broker::admit(int fd) {
    ucred credentials{};
    socklen_t length = sizeof credentials;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) {
        credentials = ucred{0, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
    }
    const bool privileged = isPrivileged(credentials);
    if (openClients >= (privileged ? limits.all : limits.anyone)) {
        ::close(fd);
        if (misbehaviour.allow()) {
            LOG(Warn, "Refused a client (pid %d, uid %u, gid %u): %zu clients are connected",
                static_cast<int>(credentials.pid), static_cast<unsigned>(credentials.uid),
                static_cast<unsigned>(credentials.gid), openClients);
        }
        return false;
    }
    clients.push_back(std::make_unique<Client>(*this, fd, credentials));
    Client& client = *clients.back();
    client.privileged = privileged;
    poll.add(fd, &client, EPOLLIN);
    ++openClients;
    LOG(LogMost, "Client %s connected", client.name.c_str());
    return true;
}

void Broker::closeForQueue(Client& client, QueueLimit limit) {
    if (misbehaviour.allow()) {
        if (limit == QueueLimit::Own) {
            LOG(Warn, "Client %s does not read: %zu bytes waiting, closing it", client.name.c_str(),
                client.output.pending());
        } else {
            LOG(Warn,
                "Clients hold %zu queued bytes: closing client %s, which has %zu of them unread",
                total.bytes, client.name.c_str(), client.output.pending());
        }
    }
    closeClient(client);
}

void Broker::refuseOne() {
    ::close(spareFd);
    int fd = ::accept4(endpoint.fd(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) {
        ::close(fd);
        if (misbehaviour.allow()) {
            LOG(Warn, "Out of descriptors: closed a new client at once");
        }
    }
    spareFd = openSpare();
}

bool Broker::receive(Client& client) {
    size_t records = 0;
    ssize_t got = client.reader.readFrom(client.fd, scratch, records);
    int readError = errno;
    const uint32_t refusals = client.subscriptions.refusals();
    takeRecords(
        client, std::span(scratch).first(records), clients, total,
        [this](Peer& peer, QueueLimit limit) { closeForQueue(static_cast<Client&>(peer), limit); });
    if (client.subscriptions.refusals() != refusals && misbehaviour.allow()) {
        LOG(Warn, "Client %s: refused %u subscriptions outside the event table (the last: %u)",
            client.name.c_str(), client.subscriptions.refusals() - refusals,
            client.subscriptions.lastRefusal());
    }
    if (!client.open) {
        return false;
    }
    if (got == 0 || (got < 0 && !wouldBlock(readError))) {
        LOG(LogMost, "Client %s disconnected%s", client.name.c_str(),
            client.reader.partial() ? " in the middle of a record" : "");
        closeClient(client);
        return false;
    }
    return got > 0;
}

void Broker::flush(Client& client) {
    ssize_t written = client.output.flush(client.fd);
    if (written > 0) {
        total.bytes -= static_cast<size_t>(written);
    }
    if (written < 0 && !wouldBlock(errno)) {
        LOG(LogMost, "Client %s: write failed: %s", client.name.c_str(), std::strerror(errno));
        closeClient(client);
        return;
    }
    bool backlog = !client.output.empty();
    if (backlog && !client.watched) {
        writeWatch.watch(client);
    } else if (!backlog && client.watched) {
        writeWatch.unwatch(client);
    }
    client.watched = backlog;
}

void Broker::flushWritable() {
    Client* ready[WriteWatch::BATCH];
    int count = writeWatch.ready(ready);
    for (int i = 0; i < count; ++i) {
        if (ready[i]->open) {
            flush(*ready[i]);
        }
    }
}

void Broker::closeClient(Client& client) {
    poll.remove(client.fd);
    if (client.watched) {
        writeWatch.unwatch(client);
        client.watched = false;
    }
    ::close(client.fd);
    client.open = false;
    total.bytes -= client.output.pending();
    client.output = OutputBuffer();
    --openClients;
}
