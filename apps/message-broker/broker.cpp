#include "broker.h"

#include "log.h"
#include "routing.h"

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

} // namespace

Broker::Broker(EventPoll& poll)
    : poll(poll), listenCallback([this](EventPoll::Callback::EventType) { accept(); }),
      writeCallback([this](EventPoll::Callback::EventType) { flushWritable(); }),
      scratch(READ_RECORDS + 1), spareFd(openSpare()) {
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
            LOG(LogMost, "Client %i hung up", client.fd);
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
        clients.push_back(std::make_unique<Client>(*this, fd));
        poll.add(fd, clients.back().get(), EPOLLIN);
        LOG(LogMost, "Client %i connected", fd);
    }
}

void Broker::refuseOne() {
    ::close(spareFd);
    int fd = ::accept4(endpoint.fd(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) {
        ::close(fd);
        LOG(Warn, "Out of descriptors: closed a new client at once");
    }
    spareFd = openSpare();
}

bool Broker::receive(Client& client) {
    size_t records = 0;
    ssize_t got = client.reader.readFrom(client.fd, scratch, records);
    int readError = errno;
    takeRecords(client, std::span(scratch).first(records), clients, [this](Client& slow) {
        LOG(Warn, "Client %i does not read: %zu bytes waiting, closing it", slow.fd,
            slow.output.pending());
        closeClient(slow);
    });
    if (!client.open) {
        return false;
    }
    if (got == 0 || (got < 0 && !wouldBlock(readError))) {
        LOG(LogMost, "Client %i disconnected%s", client.fd,
            client.reader.partial() ? " in the middle of a record" : "");
        closeClient(client);
        return false;
    }
    return got > 0;
}

void Broker::flush(Client& client) {
    ssize_t written = client.output.flush(client.fd);
    if (written < 0 && !wouldBlock(errno)) {
        LOG(LogMost, "Client %i: write failed: %s", client.fd, std::strerror(errno));
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
}
