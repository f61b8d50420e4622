// Plain file access to the device images of the test's device root, so that
// tests check the bytes the mappings left on the "device".
#pragma once

#include "kmsgcapture.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace deviceimage {

using Bytes = std::vector<unsigned char>;

constexpr char const* MMC = "/dev/mmcblk1";
constexpr char const* MEM = "/dev/mem";
constexpr off_t MMC_SIZE = 0x110000;
constexpr off_t RECORD_OFFSET = 0x100000;
constexpr std::size_t RECORD_REGION = 0x10000;
constexpr off_t REGISTER_ADDRESS = 0x020CC068;

Bytes read(char const* path, off_t offset, std::size_t count);
void write(char const* path, off_t offset, Bytes const& bytes);
off_t fileSize(char const* path);
void resize(char const* path, off_t size);

// The whole eMMC image back to its full size, every byte zero.
void zeroMmc();

// Unsigned 32-bit little-endian numbers as the record stores them.
std::uint32_t readWord(char const* path, off_t offset);
void writeWord(char const* path, off_t offset, std::uint32_t value);

Bytes record();
void writeRecord(Bytes const& bytes);
std::uint32_t registerWord();
void setRegisterWord(std::uint32_t value);

// The lines written to /dev/kmsg since construction, as the kernel keeps them
// (testsupport::KmsgCapture: priority prefixes taken off and checked).
class KernelLog {
public:
    std::string text() const;
    bool contains(std::string const& message) const;
    // The whole line that holds message, empty if there is none.
    std::string line(std::string const& message) const;

private:
    testsupport::KmsgCapture capture;
};

} // namespace deviceimage
