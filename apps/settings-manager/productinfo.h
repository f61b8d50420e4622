// The unit's identity: the hardware identity from the hardware record and the
// software identity from "/product.info", read at start, logged, and
// published in shared memory.  The board name and software version are kept
// here and copied into MemPersistent before every settings document is built,
// so every settings file names the unit and software that wrote it.
//
// Choices made here:
// - The hardware record is opened read-only, as a private copy, and
//   "/dev/mem" is not opened (HwInfo::Use::Identity): the service never writes
//   the record.  It reads what the record's own start-up would leave (an older,
//   shorter layout extended with its fields kept; a wrong checksum or a blank
//   record logged and read as a cleared record: "0000", "prototype", "1.0"),
//   while the device keeps its bytes for the factory tool.
// - When the hardware record cannot be opened at all (HwInfo's constructor or
//   initialize() throws, e.g. an eMMC device too short for the record), board,
//   serial and revision all count as unreadable and become "Unknown" with their
//   messages; the exception was logged where it was raised.
#pragma once

#include "collaborators.h"

#include <string>

class ProductInfo {
public:
    // Publishes into `memories`.
    explicit ProductInfo(const ServiceMemories& memories) : memories(memories) {}

    // Reads board, serial and revision; publishes serial and revision.
    void readHardwareIdentity();
    // Reads "/product.info"; publishes the last commit.
    void readSoftwareIdentity();
    // Copies the board name and software version into MemPersistent.
    void publish() const;

    const std::string& name() const { return productName; }
    const std::string& version() const { return productVersion; }

private:
    ServiceMemories memories;
    std::string productName;
    std::string productVersion;
};
