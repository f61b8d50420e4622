#include "settings-service/settingsclient.h"

#include "settings-service/clienterror.h"
#include "settings-service/deviceaccess.h"
#include "settings-service/memories.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr size_t HEADER_SIZE = sizeof(uint32_t);

} // namespace

std::optional<std::string> publishedCatalogueFingerprint() {
    const std::string object = std::string("/") + gen::CATALOGUE_FINGERPRINT_OBJECT;
    const int fd = shm_open(object.c_str(), O_RDONLY | O_CLOEXEC, 0);
    if (fd == -1) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        if (errno == EACCES) {
            throw DeviceAccess::refusal("/dev/shm" + object);
        }
        throw ClientError("cannot read the catalogue's fingerprint: " +
                          std::string(std::strerror(errno)));
    }
    char bytes[HEADER_SIZE + gen::CATALOGUE_FINGERPRINT_LENGTH] = {};
    const ssize_t count = pread(fd, bytes, sizeof bytes, 0);
    ::close(fd);
    uint32_t header = 0;
    std::memcpy(&header, bytes, sizeof header);
    if (count != static_cast<ssize_t>(sizeof bytes) ||
        header != gen::CATALOGUE_FINGERPRINT_LENGTH) {
        // Being made, or not a fingerprint: either way not this catalogue's.
        return std::string();
    }
    return std::string(bytes + HEADER_SIZE, gen::CATALOGUE_FINGERPRINT_LENGTH);
}

void checkCatalogueFingerprint() {
    const std::optional<std::string> published = publishedCatalogueFingerprint();
    if (!published) {
        throw ClientError("the settings service published no catalogue fingerprint (is the "
                          "settings service running?)");
    }
    if (*published != gen::catalogueFingerprint()) {
        throw ClientError("the memories were made from another catalogue (the settings "
                          "service's fingerprint is \"" +
                          *published + "\", this program's \"" + gen::catalogueFingerprint() +
                          "\"): build this program against the settings service's release");
    }
}

SettingsClient::SettingsClient(Options options)
    : level(options.logLevel), previousLevel(gComponentLogLevel),
      eventPoll(EventPoll::Signals::LeaveAlone), memories(options.readOnly) {
    gComponentLogLevel = &level;
    try {
        checkCatalogueFingerprint();
        memories.openAll();
        verified = true;
        BrokerLink::connect(eventPoll);
    } catch (...) {
        gComponentLogLevel = previousLevel;
        throw;
    }
    gServerConnection->setEventHandler(handler);
}

SettingsClient::~SettingsClient() {
    gen::closeServerConnection();
    gComponentLogLevel = previousLevel;
}

void SettingsClient::subscribe(EventId event) {
    subscriptions.push_back(event);
    if (gServerConnection != nullptr && gServerConnection->isConnected()) {
        gServerConnection->subscribe({event, 0, 0});
    }
}

void SettingsClient::setEventHandler(ServerConnection::EventHandler* eventHandler) {
    handler = eventHandler;
    if (gServerConnection != nullptr) {
        gServerConnection->setEventHandler(handler);
    }
}

void SettingsClient::subscribeAll(ServerConnection& connection) const {
    connection.subscribeEach(subscriptions);
}

bool SettingsClient::keepUp() {
    if (refused) {
        throw *refused;
    }
    try {
        return followRestarts();
    } catch (const AccessRefused& error) {
        refused = error;
        throw;
    }
}

bool SettingsClient::followRestarts() {
    bool changed = memories.refresh();
    if (changed) {
        verified = false;
    }
    if (!verified) {
        // Nothing is read from memories that were not checked: until the restarted service has
        // made every memory and published its fingerprint they stay unmapped.
        if (!memories.complete() || !publishedCatalogueFingerprint()) {
            memories.closeAll();
        } else {
            try {
                checkCatalogueFingerprint();
            } catch (const ClientError&) {
                memories.closeAll();
                throw;
            }
            verified = true;
        }
    }
    changed = BrokerLink::keepConnected(
                  eventPoll, handler,
                  [this](ServerConnection& connection) { subscribeAll(connection); }) ||
              changed;
    return changed;
}
