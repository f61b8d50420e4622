// Fuzz entry for applying a whole settings document to the memories: the
// loader's parseJsonStringStreamAndSetValues on a service whose memories
// this process created.
//
// The seam: the service starts against the broker double of this process
// (its socket and readiness semaphore), and its connection is then pointed at
// /dev/null, so every post of the loader and the setters costs one write and
// no broker.  The kernel log is pointed at /dev/null too, so that millions of
// logged parse errors fill no disk.  Each input starts from the defaults.
//
// Checks, besides the sanitizers and "nothing escapes the loader":
// - every int and enum of MemPersistent holds a value inside its range;
// - the document of the defaults is complete;
// - the document written after an input, read back into the defaults, gives
//   the same document again (every stored value round-trips through it).
// Both depend on the memory's bytes only, so a state met before is not
// checked again.
#include "brokerdouble.h"
#include "documenttext.h"
#include "settings-service/brokerprotocol.h"
#include "settings-service/introspection.h"
#include "settings-service/memories.h"
#include "settings-service/records.h"
#include "settings-service/serverconnection.h"
#include "settingsmanager.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <unordered_set>

namespace {

// Aborts, naming the line of the check that failed.
void check(bool condition, int line = __builtin_LINE()) {
    if (!condition) {
        std::fprintf(stderr, "document_fuzz.cpp:%d: check failed\n", line);
        std::abort();
    }
}

bool isBrokerConnection(int fd) {
    sockaddr_un peer{};
    socklen_t size = sizeof peer;
    return ::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
           peer.sun_family == AF_UNIX &&
           std::strcmp(peer.sun_path, BrokerProtocol::SOCKET_PATH) == 0;
}

bool isKernelLog(int fd) {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), error) ==
           "/dev/kmsg";
}

// Points every descriptor of this process that `matches` at /dev/null.
void pointAtNull(bool (*matches)(int)) {
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    check(null >= 0);
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename().string());
        if (fd != null && matches(fd)) {
            check(::dup2(null, fd) == fd);
        }
    }
    ::close(null);
}

class Harness {
public:
    Harness() : memory(Introspection::getMemIndex("MemPersistent")) {
        defaults = gen::memPersistent();
        pointAtNull(isBrokerConnection);
        pointAtNull(isKernelLog);
        check(DocumentText::isCompleteDocument(service.getCurrentValues().str()));
    }

    void apply(const std::string& text) {
        gen::memPersistent() = defaults;
        service.parseJsonStringStreamAndSetValues(std::stringstream(text));
        // The checks depend on the memory's bytes only: a state met before
        // (the defaults first of all) was checked then, and is not again.
        const std::string_view state(reinterpret_cast<const char*>(&gen::memPersistent()),
                                     sizeof defaults);
        if (!checked.insert(std::hash<std::string_view>()(state)).second) {
            return;
        }
        if (checked.size() > MAX_CHECKED_STATES) {
            checked.clear();
        }
        checkRanges();
        roundTrip();
    }

private:
    static constexpr std::size_t MAX_CHECKED_STATES = 1000000;

    void roundTrip() {
        const std::string written = service.getCurrentValues().str();
        gen::memPersistent() = defaults;
        service.parseJsonStringStreamAndSetValues(std::stringstream(written));
        check(service.getCurrentValues().str() == written);
    }

    void checkRanges() {
        const uint32_t count = Introspection::getVarCount(memory);
        for (uint32_t variable = 0; variable < count; ++variable) {
            const uint32_t type = Introspection::getVarBaseType(memory, variable);
            if ((type != BaseInt && type != BaseEnum) || Introspection::isArray(memory, variable)) {
                continue;
            }
            std::string error;
            const std::string value = Introspection::getVarValue(memory, variable, 0);
            check(Introspection::checkMinMax(memory, variable, value, error));
            check(value.rfind("INVALID_VALUE", 0) == std::string::npos);
        }
    }

    BrokerDouble broker;
    SettingsManager service;
    uint32_t memory;
    gen::MemPersistentRecord defaults;
    std::unordered_set<std::size_t> checked;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Never destroyed: the connection's descriptor is no socket any more.
    static Harness* harness = new Harness;
    harness->apply(std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
