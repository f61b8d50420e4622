#include "device.h"

#include "cli.h"
#include "eventpoll.h"
#include "introspection.h"
#include "memories.h"
#include "program.h"

#include <exception>
#include <sys/stat.h>

namespace {

// POSIX shared-memory objects are the files of /dev/shm on Linux.
std::string objectPath(uint32_t memory) {
    return "/dev/shm" + gen::getSharedMemory(memory).getName();
}

} // namespace

bool memoryExists(uint32_t memory) {
    struct stat status {};
    return ::stat(objectPath(memory).c_str(), &status) == 0;
}

void openMemory(uint32_t memory) {
    const std::string name = Introspection::getMemName(memory);
    if (!memoryExists(memory)) {
        throw Failure("memory " + name + " does not exist (is the settings service running?)");
    }
    try {
        gen::openMemory(memory);
    } catch (const std::exception& error) {
        throw Failure("cannot open memory " + name + ": " + errorMessage(error));
    }
}

ServerConnection& connectBroker() {
    if (gServerConnection == nullptr) {
        try {
            gServerConnection = new ServerConnection(gen::getEventPoll());
        } catch (const std::exception& error) {
            throw Failure("cannot connect to the message broker: " + errorMessage(error) +
                          " (is the message broker running?)");
        }
    }
    return *gServerConnection;
}
