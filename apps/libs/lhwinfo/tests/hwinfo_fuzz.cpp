// Fuzz entry for the hardware record: arbitrary bytes as the record region
// and the boot status register, then HwInfo initialises, every key is read,
// and writes of every form are tried.
//
// It runs in a device root only (tools/devroot/devroot exec), where
// /dev/mmcblk1 and /dev/mem are image files and /dev/kmsg a plain file; it
// refuses to run where /dev/kmsg is not a plain file.  The log file is
// emptied every LOG_RUNS runs so that a long run does not fill the disk.
//
// Input: byte 0, low three bits: the number of writes; bytes 1 to 4: the
// register word; then each write as a selector byte, a length byte and that
// many bytes of text; the rest is the start of the 64 KiB record region (the
// remainder of the region is zero).
//
// Checks: initialize() and every read complete without an exception; after
// initialize() and after every write the record is valid (a length from 348
// to the region's size, the checksum over that length; the version lies
// outside the checksum and is not checked); a
// text read stays within its field; a write changes nothing outside the
// record region and the register, and an assignment to a register field
// changes only that field's bits.
#include "deviceimage.h"
#include "hwinfo.h"
#include "recordimage.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using recordimage::RECORD_SIZE;
constexpr unsigned int LOG_RUNS = 10000;

struct Key {
    char const* name;
    unsigned int textWidth;     // 0: not a text
    std::uint32_t registerMask; // 0: not in the register
};

constexpr Key KEYS[] = {
    {"version", 0, 0},
    {"length", 0, 0},
    {"checksum", 0, 0},
    {"serial", 30, 0},
    {"board", 30, 0},
    {"revision", 30, 0},
    {"k", 30, 0},
    {"knob_position_min", 0, 0},
    {"knob_position_max", 0, 0},
    {"slider_position_min", 0, 0},
    {"slider_position_max", 0, 0},
    {"zoom_zero_pos_x", 0, 0},
    {"zoom_zero_pos_y", 0, 0},
    {"bemf_gain", 0, 0},
    {"cal_comp", 0, 0},
    {"cal_bemf", 0, 0},
    {"knob_linearization", 180, 0},
    {"update_requested", 0, 0x80000000u},
    {"unused", 0, 0x7FFFFFE0u},
    {"boot_failed", 0, 0x00000010u},
    {"boot_failed_counter", 0, 0x0000000Fu},
    {"no_such_key", 0, 0},
    {"", 0, 0},
};
constexpr std::size_t KEY_COUNT = sizeof KEYS / sizeof KEYS[0];
// The typed integer forms act on the whole word at a field's rounded-up
// byte; for "boot_failed" and "boot_failed_counter" that is the word after
// the register, so typed writes go to these keys only.
constexpr std::size_t TYPED_KEYS = 18;

void check(bool condition, char const* what) {
    if (!condition) {
        std::fprintf(stderr, "hwinfo fuzz: %s\n", what);
        std::abort();
    }
}

// The device images, opened once: opening them for every access would cost
// more than the rest of a run.
int image(char const* path) {
    static int const mmc = ::open(deviceimage::MMC, O_RDWR | O_CLOEXEC);
    static int const mem = ::open(deviceimage::MEM, O_RDWR | O_CLOEXEC);
    int fd = std::strcmp(path, deviceimage::MMC) == 0 ? mmc : mem;
    check(fd >= 0, "cannot open the device images");
    return fd;
}

deviceimage::Bytes readImage(char const* path, off_t offset, std::size_t count) {
    deviceimage::Bytes bytes(count);
    check(::pread(image(path), bytes.data(), count, offset) == static_cast<ssize_t>(count),
          "cannot read a device image");
    return bytes;
}

void writeImage(char const* path, off_t offset, void const* bytes, std::size_t count) {
    check(::pwrite(image(path), bytes, count, offset) == static_cast<ssize_t>(count),
          "cannot write a device image");
}

std::uint32_t registerWord() {
    return recordimage::word(readImage(deviceimage::MEM, deviceimage::REGISTER_ADDRESS, 4), 0);
}

// The record as last found valid: the bitwise reference CRC is slow, and most
// writes are refused and change nothing.
deviceimage::Bytes lastValid;

void checkRecord() {
    deviceimage::Bytes head = readImage(deviceimage::MMC, deviceimage::RECORD_OFFSET, 12);
    std::uint32_t length = recordimage::word(head, recordimage::LENGTH);
    check(length >= RECORD_SIZE && length <= deviceimage::RECORD_REGION, "length");
    deviceimage::Bytes record = readImage(deviceimage::MMC, deviceimage::RECORD_OFFSET, length);
    if (record != lastValid) {
        check(recordimage::word(head, recordimage::CHECKSUM) ==
                  recordimage::checksumOf(record, length),
              "checksum");
        lastValid = std::move(record);
    }
}

// The bytes around the record region and the register, which no access may change.
struct Surroundings {
    Surroundings()
        : beforeRecord(readImage(deviceimage::MMC, deviceimage::RECORD_OFFSET - 16, 16)),
          beforeRegister(readImage(deviceimage::MEM, deviceimage::REGISTER_ADDRESS - 16, 16)),
          afterRegister(readImage(deviceimage::MEM, deviceimage::REGISTER_ADDRESS + 4, 16)) {}
    bool operator==(Surroundings const&) const = default;
    deviceimage::Bytes beforeRecord;
    deviceimage::Bytes beforeRegister;
    deviceimage::Bytes afterRegister;
};

void checkReads(HwInfo& hwInfo) {
    for (Key const& key : KEYS) {
        std::string text;
        unsigned int number = 0;
        bool known = hwInfo.read(key.name, text);
        check(known == hwInfo.read(key.name, number), "both read forms find the same keys");
        check(text.find('\0') == std::string::npos, "text without zero bytes");
        check(key.textWidth == 0 || text.size() <= key.textWidth, "text within its field");
    }
}

// One write as the input describes it; the errors the write forms document
// are expected, anything else is not.
void tryWrite(HwInfo& hwInfo, std::uint8_t selector, std::string const& text) {
    Key const& key = KEYS[selector / 4 % KEY_COUNT];
    std::uint32_t registerBefore = registerWord();
    bool assignment = false;
    bool written = false;
    try {
        switch (selector % 4) {
        case 0:
            written = hwInfo.write(key.name, text.c_str());
            break;
        case 1: {
            Key const& typed = KEYS[selector / 4 % TYPED_KEYS];
            unsigned int value = 0;
            std::memcpy(&value, text.data(),
                        text.size() < sizeof value ? text.size() : sizeof value);
            written = hwInfo.write(typed.name, value);
            break;
        }
        case 2:
            assignment = true;
            written = hwInfo.write(selector & 0x80 ? text : std::string(key.name) + "=" + text);
            break;
        default:
            hwInfo.check(std::string(key.name) + "=" + text);
            break;
        }
    } catch (std::exception const&) {
        written = false;
    }
    std::uint32_t registerAfter = registerWord();
    if (!written) {
        check(registerAfter == registerBefore, "a refused write left the register alone");
    } else if (assignment && (selector & 0x80) == 0 && key.registerMask != 0) {
        check(((registerAfter ^ registerBefore) & ~key.registerMask) == 0,
              "an assignment changed only its field's bits");
    }
    checkRecord();
}

bool inDeviceRoot() {
    struct stat status {};
    return ::stat("/dev/kmsg", &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static bool ready = inDeviceRoot();
    static unsigned int runs = 0;
    check(ready, "run me in a device root (tools/devroot/devroot exec)");
    if (++runs % LOG_RUNS == 0) {
        check(::truncate("/dev/kmsg", 0) == 0, "the kernel log can be emptied");
    }
    if (size < 5) {
        return 0;
    }
    unsigned int writes = data[0] & 7;
    std::uint32_t word;
    std::memcpy(&word, data + 1, sizeof word);
    std::size_t at = 5;
    std::string texts[8];
    std::uint8_t selectors[8] = {};
    for (unsigned int i = 0; i < writes && at + 2 <= size; ++i) {
        selectors[i] = data[at];
        std::size_t length = data[at + 1];
        at += 2;
        length = length < size - at ? length : size - at;
        texts[i].assign(reinterpret_cast<char const*>(data + at), length);
        at += length;
    }
    std::size_t regionBytes = std::min(size - at, std::size_t{deviceimage::RECORD_REGION});
    writeImage(deviceimage::MMC, deviceimage::RECORD_OFFSET, data + at, regionBytes);
    // The rest of the region is zero: only what the last run may have
    // written (its input and the record's fields) is cleared again.
    static std::size_t dirty = deviceimage::RECORD_REGION;
    if (dirty > regionBytes) {
        static deviceimage::Bytes const zeros(deviceimage::RECORD_REGION, 0);
        writeImage(deviceimage::MMC, deviceimage::RECORD_OFFSET + regionBytes, zeros.data(),
                   dirty - regionBytes);
    }
    dirty = std::max<std::size_t>(regionBytes, RECORD_SIZE);
    writeImage(deviceimage::MEM, deviceimage::REGISTER_ADDRESS, &word, sizeof word);
    Surroundings before;

    HwInfo hwInfo;
    hwInfo.initialize();
    checkRecord();
    checkReads(hwInfo);
    for (unsigned int i = 0; i < writes; ++i) {
        tryWrite(hwInfo, selectors[i], texts[i]);
    }
    checkReads(hwInfo);
    FILE* sink = std::fopen("/dev/null", "w");
    hwInfo.printParameters(sink);
    std::fclose(sink);
    check(Surroundings() == before, "nothing outside the record and the register changed");
    return 0;
}
