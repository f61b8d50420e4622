// Generated from gen/model by gen/generator. Do not edit.
// The layout of every memory record and struct type. The same layout holds on x86-64
// and 32-bit ARM: every member is aligned to its own size (at most 4 bytes).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The mapped data of each memory; null until the memory is open.
extern uint8_t* gMemAlpha;
extern uint8_t* gMemFlags;
extern uint8_t* gMemLevels;

namespace gen {

// A labelled point.
struct Point {
    int32_t X;
    float Y;
    std::array<char, 5> Name;
    bool Shown;
};
static_assert(sizeof(Point) == 16);
static_assert(offsetof(Point, X) == 0);
static_assert(offsetof(Point, Y) == 4);
static_assert(offsetof(Point, Name) == 8);
static_assert(offsetof(Point, Shown) == 13);

// One record per memory; the accessor needs the memory to be open.

struct MemAlphaRecord {
    int32_t Brightness;
    float Gain;
    bool Enabled;
    std::array<char, 8> Title;
    uint32_t Tint;
    std::array<uint8_t, 3> Code;
    std::array<uint8_t, 2> Mask;
    std::array<uint8_t, 3> reserved29;
    std::array<Point, 2> Points;
};
static_assert(sizeof(MemAlphaRecord) == 64);
static_assert(offsetof(MemAlphaRecord, Brightness) == 0);
static_assert(offsetof(MemAlphaRecord, Gain) == 4);
static_assert(offsetof(MemAlphaRecord, Enabled) == 8);
static_assert(offsetof(MemAlphaRecord, Title) == 9);
static_assert(offsetof(MemAlphaRecord, Tint) == 20);
static_assert(offsetof(MemAlphaRecord, Code) == 24);
static_assert(offsetof(MemAlphaRecord, Mask) == 27);
static_assert(offsetof(MemAlphaRecord, reserved29) == 29);
static_assert(offsetof(MemAlphaRecord, Points) == 32);
inline MemAlphaRecord& memAlpha() {
    return *reinterpret_cast<MemAlphaRecord*>(gMemAlpha);
}

struct MemFlagsRecord {
    bool Ready;
    bool Busy;
};
static_assert(sizeof(MemFlagsRecord) == 2);
static_assert(offsetof(MemFlagsRecord, Ready) == 0);
static_assert(offsetof(MemFlagsRecord, Busy) == 1);
inline MemFlagsRecord& memFlags() {
    return *reinterpret_cast<MemFlagsRecord*>(gMemFlags);
}

struct MemLevelsRecord {
    uint32_t ServiceLevel;
    uint32_t OtherLevel;
};
static_assert(sizeof(MemLevelsRecord) == 8);
static_assert(offsetof(MemLevelsRecord, ServiceLevel) == 0);
static_assert(offsetof(MemLevelsRecord, OtherLevel) == 4);
inline MemLevelsRecord& memLevels() {
    return *reinterpret_cast<MemLevelsRecord*>(gMemLevels);
}

} // namespace gen
