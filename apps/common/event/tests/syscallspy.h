// Records the system calls that the broker connection makes, for the tests.
//
// The test program defines sem_open, sched_yield, connect, epoll_ctl, write,
// read, shutdown and poll itself; each records the call while recording is on
// and forwards to the C library's function.  sem_open can also be told to fail
// a number of times before it forwards.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace spy {

struct Call {
    std::string name; // "sem_open", "sched_yield", "connect", "epoll_ctl ADD", ...
    int fd = -1;
    long value = 0;             // address length, byte count, poll time-out or shutdown direction
    long result = 0;            // what the function returned
    std::string text;           // semaphore name or socket path
    std::vector<uint8_t> bytes; // the bytes written
};

void start();
std::vector<Call> stop();
// The next `times` calls of sem_open fail with ENOENT without opening anything.
void failSemOpen(int times);
// The calls named `name` among `calls`.
std::vector<Call> only(const std::vector<Call>& calls, const std::string& name);

} // namespace spy
