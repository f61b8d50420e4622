#include "writewatch.h"

#include "client.h"
#include "settings-service/log.h"

#include <sys/epoll.h>
#include <unistd.h>

WriteWatch::WriteWatch() : epollFd(epoll_create1(EPOLL_CLOEXEC)) {
    if (epollFd < 0) {
        THROW_ERROR_NUMBER("epoll_create1");
    }
}

WriteWatch::~WriteWatch() {
    ::close(epollFd);
}

void WriteWatch::watch(Client& client) {
    epoll_event event{};
    event.events = EPOLLOUT;
    event.data.ptr = &client;
    if (epoll_ctl(epollFd, EPOLL_CTL_ADD, client.fd, &event) < 0) {
        THROW_ERROR_NUMBER("epoll_ctl");
    }
}

void WriteWatch::unwatch(Client& client) {
    if (epoll_ctl(epollFd, EPOLL_CTL_DEL, client.fd, nullptr) < 0) {
        THROW_ERROR_NUMBER("epoll_ctl");
    }
}

int WriteWatch::ready(Client* (&clients)[BATCH]) {
    epoll_event events[BATCH];
    int count = epoll_wait(epollFd, events, BATCH, 0);
    for (int i = 0; i < count; ++i) {
        clients[i] = static_cast<Client*>(events[i].data.ptr);
    }
    return count < 0 ? 0 : count;
}
