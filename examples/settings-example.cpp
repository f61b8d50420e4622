// settings-example MEMORY VARIABLE [VALUE] [--changes N]
//
// What a program of the device does first with the settings service: it opens the memories that
// the service made, prints a variable found by name, sets it when a value is given (checked by the
// value codec), subscribes to its change event and prints every change until SIGINT or SIGTERM (or
// N changes) end it.
#include "settings-service/introspection.h"
#include "settings-service/settingsclient.h"
#include "settings-service/valuecodec.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>

namespace {

class ChangePrinter : public ServerConnection::EventHandler {
public:
    ChangePrinter(uint32_t memory, uint32_t variable) : memory(memory), variable(variable) {}

    void handleEvent(const Notify&) override {
        std::printf("%s changed: %s\n", Introspection::getVarName(memory, variable),
                    Introspection::getVarValue(memory, variable, 0).c_str());
        std::fflush(stdout);
        ++changes;
    }
    void connectionLost() override {
        std::fprintf(stderr, "settings-example: lost the message broker\n");
    }

    uint32_t memory;
    uint32_t variable;
    long changes = 0;
};

int usage() {
    std::fprintf(stderr, "usage: settings-example MEMORY VARIABLE [VALUE] [--changes N]\n");
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    // This program wants SIGINT and SIGTERM to end its loop: it asks for the handlers.
    EventPoll::handleSignals();
    if (argc < 3) {
        return usage();
    }
    std::optional<std::string> value;
    long maxChanges = -1;
    for (int i = 3; i < argc; ++i) {
        if (std::strcmp(argv[i], "--changes") == 0 && i + 1 < argc) {
            maxChanges = std::strtol(argv[++i], nullptr, 10);
        } else if (!value) {
            value = argv[i];
        } else {
            return usage();
        }
    }
    try {
        SettingsClient client({.logLevel = gen::Warn});
        const uint32_t memory = Introspection::getMemIndex(argv[1]);
        const std::optional<uint32_t> variable = Introspection::findVarIndex(memory, argv[2]);
        if (!variable) {
            std::fprintf(stderr, "settings-example: no variable %s in %s\n", argv[2], argv[1]);
            return 1;
        }
        ChangePrinter printer(memory, *variable);
        client.setEventHandler(&printer);
        client.subscribe(Introspection::getVarEvent(memory, *variable).id);
        std::printf("%s = %s\n", argv[2], Introspection::getVarValue(memory, *variable, 0).c_str());
        std::fflush(stdout);
        if (value) {
            // The value codec's strict check first: the text is stored exactly as written, or
            // refused with the reason (read-only, outside the range, cut, not an entry...).
            std::string error = ValueCodec::refusal(memory, *variable, *value);
            if (error.empty()) {
                error = Introspection::setVarValue(memory, *variable, value->c_str());
            }
            if (!error.empty()) {
                std::fprintf(stderr, "settings-example: %s\n", error.c_str());
                return 1;
            }
        }
        while (printer.changes != maxChanges && client.poll().wait(1000) != EventPoll::Terminate) {
            client.keepUp();
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "settings-example: %s\n", errorMessage(error).c_str());
        return 1;
    }
    return 0;
}
