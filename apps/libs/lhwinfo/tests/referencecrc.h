// An independent CRC-32/MPEG-2: bit by bit, most significant bit first,
// polynomial 0x04C11DB7, initial value 0xFFFFFFFF, no final exclusive-or.
// Each bit shifts the register left and adds the polynomial when the bit
// shifted out differs from the data bit; the steps are written out without
// branches, so that the fuzz entry, which checks every record it sees, stays
// fast under coverage instrumentation.
#pragma once

#include <cstddef>
#include <cstdint>

inline std::uint32_t referenceCrc(unsigned char const* bytes, std::size_t count) {
    std::uint32_t crc = 0xFFFFFFFF;
    auto step = [&crc](unsigned int bit) {
        crc = (crc << 1) ^ (0x04C11DB7u & (0u - ((crc >> 31) ^ bit)));
    };
    for (std::size_t i = 0; i < count; ++i) {
        unsigned int byte = bytes[i];
        step(byte >> 7 & 1);
        step(byte >> 6 & 1);
        step(byte >> 5 & 1);
        step(byte >> 4 & 1);
        step(byte >> 3 & 1);
        step(byte >> 2 & 1);
        step(byte >> 1 & 1);
        step(byte & 1);
    }
    return crc;
}
