// Generated from gen/model by gen/generator. Do not edit.
// The data of the memories that the start-up reads (see memorydata.h): every memory's segment,
// base pointer, default record and start, the service's subscriptions, the place of its own
// log level and the catalogue's fingerprint.
#include "memorydata.h"

uint8_t* gMemAlpha = nullptr;
uint8_t* gMemFlags = nullptr;
uint8_t* gMemLevels = nullptr;

namespace gen {

namespace {

SharedMemory segmentAlpha("MemAlpha", 64);
SharedMemory segmentFlags("MemFlags", 2);
SharedMemory segmentLevels("MemLevels", 8);

const DefaultPiece DEFAULTSAlpha[] = {
    {0, 12, "\x05\x00\x00\x00\x00\x00\xc0\x3f\x01\x61\x62\x63"},
    {20, 1, "\x01"},
    {0, 0, nullptr},
};
const DefaultPiece DEFAULTSFlags[] = {
    {0, 0, nullptr},
};
const DefaultPiece DEFAULTSLevels[] = {
    {0, 5, "\x01\x00\x00\x00\x01"},
    {0, 0, nullptr},
};

} // namespace

const MemoryData MEMORY_DATA[] = {
    {&segmentAlpha, &gMemAlpha, DEFAULTSAlpha, MemoryStart::Defaults, 0},
    {&segmentFlags, &gMemFlags, DEFAULTSFlags, MemoryStart::Zeroed, 0},
    {&segmentLevels, &gMemLevels, DEFAULTSLevels, MemoryStart::Fill, 1},
};

const EventId SUBSCRIPTIONS[] = {
    VarBrightnessChanged,
    VarReadyChanged,
    VarBrightnessChanged,
};
const uint32_t SUBSCRIPTION_COUNT = 3;

const VariablePlace SERVICE_LOG_LEVEL = {2, 0};

const char CATALOGUE_FINGERPRINT[] = "b749bf8a1d1eb5c199f79c128a852c20";

} // namespace gen
