// An independent CRC-32/MPEG-2: bit by bit, most significant bit first,
// polynomial 0x04C11DB7, initial value 0xFFFFFFFF, no final exclusive-or.
#pragma once

#include <cstddef>
#include <cstdint>

inline std::uint32_t referenceCrc(unsigned char const* bytes, std::size_t count) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (std::size_t i = 0; i < count; ++i) {
        for (int bit = 7; bit >= 0; --bit) {
            bool in = (bytes[i] >> bit) & 1;
            bool top = crc & 0x80000000u;
            crc <<= 1;
            if (in != top) {
                crc ^= 0x04C11DB7;
            }
        }
    }
    return crc;
}
