// The hardware record's bytes as the tests build and expect them, written
// from the record's byte layout independently of the library.
#pragma once

#include "deviceimage.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace recordimage {

using deviceimage::Bytes;

constexpr std::size_t VERSION = 0;
constexpr std::size_t LENGTH = 4;
constexpr std::size_t CHECKSUM = 8;
constexpr std::size_t SERIAL = 12;
constexpr std::size_t BOARD = 42;
constexpr std::size_t REVISION = 72;
constexpr std::size_t K = 102;
constexpr std::size_t KNOB_POSITION_MIN = 132;
constexpr std::size_t KNOB_POSITION_MAX = 136;
constexpr std::size_t CAL_BEMF = 164;
constexpr std::size_t KNOB_LINEARIZATION = 168;
constexpr std::size_t RECORD_SIZE = 348;
constexpr std::size_t TEXT_WIDTH = 30;
constexpr std::size_t KNOB_LINEARIZATION_WIDTH = 180;
constexpr std::uint32_t VERSION_NUMBER = 5;

std::uint32_t word(Bytes const& bytes, std::size_t at);
void putWord(Bytes& bytes, std::size_t at, std::uint32_t value);
// Writes text and its terminator; the bytes after them are kept.
void putText(Bytes& bytes, std::size_t at, std::string const& text);
// The checksum of bytes 12 up to length by the reference CRC.
std::uint32_t checksumOf(Bytes const& bytes, std::size_t length);
// Stores the checksum over the stored length.
void seal(Bytes& bytes);

// A valid version 5 record with every field set; the rest of the region 0x5A.
Bytes sample();
// What resetting to defaults leaves of a region: integers 0, the first byte
// of every text 0, the default texts, version, length 348, valid checksum.
Bytes defaultsOf(Bytes bytes);
// What extending a record of its stored length leaves: bytes from that
// length up to 348 zero, length 348, valid checksum, version 5.
Bytes extendedOf(Bytes bytes);

} // namespace recordimage
