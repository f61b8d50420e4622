#include "recordimage.h"

#include "referencecrc.h"

#include <algorithm>

namespace recordimage {

namespace {

constexpr std::size_t TEXTS[] = {SERIAL, BOARD, REVISION, K, KNOB_LINEARIZATION};
constexpr unsigned char TAIL = 0x5A;

} // namespace

std::uint32_t word(Bytes const& bytes, std::size_t at) {
    return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 |
           static_cast<std::uint32_t>(bytes[at + 3]) << 24;
}

void putWord(Bytes& bytes, std::size_t at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        bytes[at + i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

void putText(Bytes& bytes, std::size_t at, std::string const& text) {
    std::copy(text.begin(), text.end(), bytes.begin() + at);
    bytes[at + text.size()] = 0;
}

std::uint32_t checksumOf(Bytes const& bytes, std::size_t length) {
    return referenceCrc(bytes.data() + 12, length - 12);
}

void seal(Bytes& bytes) {
    putWord(bytes, CHECKSUM, checksumOf(bytes, word(bytes, LENGTH)));
}

Bytes sample() {
    Bytes bytes(deviceimage::RECORD_REGION, TAIL);
    std::fill(bytes.begin(), bytes.begin() + RECORD_SIZE, 0x11);
    putWord(bytes, VERSION, VERSION_NUMBER);
    putWord(bytes, LENGTH, RECORD_SIZE);
    putText(bytes, SERIAL, "SN-0042");
    putText(bytes, BOARD, "mainboard-b");
    putText(bytes, REVISION, "2.3");
    putText(bytes, K, "k-factor 1.25");
    for (std::size_t at = KNOB_POSITION_MIN; at <= CAL_BEMF; at += 4) {
        putWord(bytes, at, static_cast<std::uint32_t>(at * 1000 + 7));
    }
    putText(bytes, KNOB_LINEARIZATION, "0,12,25,37,50,62,75,87,100");
    seal(bytes);
    return bytes;
}

Bytes defaultsOf(Bytes bytes) {
    for (std::size_t at = VERSION; at < SERIAL; at += 4) {
        putWord(bytes, at, 0);
    }
    for (std::size_t at = KNOB_POSITION_MIN; at <= CAL_BEMF; at += 4) {
        putWord(bytes, at, 0);
    }
    for (std::size_t at : TEXTS) {
        bytes[at] = 0;
    }
    putWord(bytes, VERSION, VERSION_NUMBER);
    putWord(bytes, LENGTH, RECORD_SIZE);
    putText(bytes, SERIAL, "0000");
    putText(bytes, BOARD, "prototype");
    putText(bytes, REVISION, "1.0");
    seal(bytes);
    return bytes;
}

Bytes extendedOf(Bytes bytes) {
    std::size_t oldLength = word(bytes, LENGTH);
    std::fill(bytes.begin() + std::min(oldLength, RECORD_SIZE), bytes.begin() + RECORD_SIZE, 0);
    putWord(bytes, LENGTH, RECORD_SIZE);
    seal(bytes);
    putWord(bytes, VERSION, VERSION_NUMBER);
    return bytes;
}

} // namespace recordimage
