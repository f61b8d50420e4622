#include "persistentinfo.h"

#include "settings-service/log.h"

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

// Device sizes beyond 2 GiB (an eMMC) must be comparable on 32-bit ARM too.
static_assert(sizeof(off_t) == 8, "build with _FILE_OFFSET_BITS=64");

namespace {

// The first bytes of a block hold the record's version, length and checksum
// and lie outside the checksum.
constexpr unsigned int CHECKSUM_START = 12;
constexpr std::uint32_t CRC_POLYNOMIAL = 0x04C11DB7;
constexpr std::uint32_t CRC_INITIAL = 0xFFFFFFFF;

constexpr std::array<std::uint32_t, 256> makeCrcTable() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t index = 0; index < 256; ++index) {
        std::uint32_t crc = index << 24;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x80000000u) ? (crc << 1) ^ CRC_POLYNOMIAL : crc << 1;
        }
        table[index] = crc;
    }
    return table;
}

constexpr std::array<std::uint32_t, 256> CRC_TABLE = makeCrcTable();

std::uint32_t crc32Mpeg2(unsigned char const* bytes, std::size_t count) {
    std::uint32_t crc = CRC_INITIAL;
    for (std::size_t i = 0; i < count; ++i) {
        crc = CRC_TABLE[(crc >> 24) ^ bytes[i]] ^ (crc << 8);
    }
    return crc;
}

// std::stoul as it behaves where unsigned long has 32 bits (the device):
// leading blanks and a sign are accepted, conversion stops at the first
// non-digit, a minus wraps modulo 2^32, and a magnitude above 2^32 - 1 is out
// of range.  The errors name "stoul" on every platform.
unsigned int toUnsigned(char const* text) {
    unsigned long long converted = 0;
    try {
        converted = std::stoull(text);
    } catch (std::invalid_argument const&) {
        throw std::invalid_argument("stoul");
    } catch (std::out_of_range const&) {
        throw std::out_of_range("stoul");
    }
    char const* sign = text;
    while (std::isspace(static_cast<unsigned char>(*sign))) {
        ++sign;
    }
    unsigned long long magnitude = *sign == '-' ? 0ULL - converted : converted;
    if (magnitude > UINT32_MAX) {
        throw std::out_of_range("stoul");
    }
    return static_cast<unsigned int>(converted);
}

unsigned int byteOf(unsigned int bitPos) {
    return (bitPos + 7) / 8;
}

} // namespace

// ---- Int

unsigned int PersistentInfo::Int::load(unsigned char const* mapping, unsigned int bitPos) {
    unsigned char const* at = mapping + byteOf(bitPos);
    if (reinterpret_cast<std::uintptr_t>(at) % 4 == 0) {
        return *reinterpret_cast<std::uint32_t const volatile*>(at);
    }
    std::uint32_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

void PersistentInfo::Int::store(unsigned char* mapping, unsigned int bitPos, unsigned int in) {
    unsigned char* at = mapping + byteOf(bitPos);
    if (reinterpret_cast<std::uintptr_t>(at) % 4 == 0) {
        *reinterpret_cast<std::uint32_t volatile*>(at) = in;
        return;
    }
    std::uint32_t word = in;
    std::memcpy(at, &word, sizeof word);
}

void PersistentInfo::Int::value(unsigned char* mapping, unsigned int bitPos,
                                unsigned int& out) const {
    out = load(mapping, bitPos);
}

void PersistentInfo::Int::setValue(unsigned char* mapping, unsigned int bitPos,
                                   unsigned int in) const {
    store(mapping, bitPos, in);
}

void PersistentInfo::Int::value(unsigned char* mapping, unsigned int bitPos,
                                std::string& out) const {
    out = std::to_string(load(mapping, bitPos));
}

bool PersistentInfo::Int::setValue(unsigned char* mapping, unsigned int bitPos,
                                   char const* text) const {
    store(mapping, bitPos, toUnsigned(text));
    return true;
}

void PersistentInfo::Int::checkValue(char const* text) const {
    toUnsigned(text);
}

// ---- String

PersistentInfo::String::String(char const* name, unsigned int flags, unsigned int length)
    : Base(name, flags), length(length) {
    if (length < 2) {
        THROW_ERROR("%s has an invalid width %u.", name, length);
    }
}

void PersistentInfo::String::value(unsigned char* mapping, unsigned int bitPos,
                                   std::string& out) const {
    char const* text = reinterpret_cast<char const*>(mapping + byteOf(bitPos));
    out.assign(text, strnlen(text, length));
}

bool PersistentInfo::String::setValue(unsigned char* mapping, unsigned int bitPos,
                                      char const* text) const {
    checkValue(text);
    unsigned char* at = mapping + byteOf(bitPos);
    std::size_t count = std::strlen(text);
    std::memcpy(at, text, count);
    at[count] = 0;
    return true;
}

void PersistentInfo::String::checkValue(char const* text) const {
    if (std::strlen(text) > length - 2) {
        THROW_ERROR("String too long");
    }
}

// ---- Bits

PersistentInfo::Bits::Bits(char const* name, unsigned int flags, unsigned int width)
    : Base(name, flags), width(width) {
    if (width < 1 || width > 32) {
        THROW_ERROR("%s has an invalid width %u.", name, width);
    }
}

unsigned int PersistentInfo::Bits::getParams(unsigned int bitPos, unsigned int& mask,
                                             unsigned int& shift) const {
    shift = 32 - width - bitPos % 32;
    mask = 0xFFFFFFFFu >> (32 - width);
    return bitPos / 32 * 4;
}

void PersistentInfo::Bits::value(unsigned char* mapping, unsigned int bitPos,
                                 unsigned int& out) const {
    unsigned int mask;
    unsigned int shift;
    unsigned int at = getParams(bitPos, mask, shift);
    out = (*reinterpret_cast<std::uint32_t const volatile*>(mapping + at) >> shift) & mask;
}

void PersistentInfo::Bits::setValue(unsigned char* mapping, unsigned int bitPos,
                                    unsigned int in) const {
    unsigned int mask;
    unsigned int shift;
    unsigned int at = getParams(bitPos, mask, shift);
    auto* word = reinterpret_cast<std::uint32_t volatile*>(mapping + at);
    *word = (*word & ~(mask << shift)) | ((in & mask) << shift);
}

void PersistentInfo::Bits::value(unsigned char* mapping, unsigned int bitPos,
                                 std::string& out) const {
    unsigned int bits;
    value(mapping, bitPos, bits);
    out = std::to_string(bits);
}

bool PersistentInfo::Bits::setValue(unsigned char* mapping, unsigned int bitPos,
                                    char const* text) const {
    setValue(mapping, bitPos, toUnsigned(text));
    return true;
}

void PersistentInfo::Bits::checkValue(char const* text) const {
    toUnsigned(text);
}

// ---- PersistentInfo

PersistentInfo::PersistentInfo(char const* device, unsigned int offset, unsigned int blockLength,
                               Access access)
    : devicePath(device), offset(offset), blockLength(blockLength), access(access), fd(-1),
      mapping(nullptr), pageOffset(0), mappingLength(0) {
    open();
}

PersistentInfo::~PersistentInfo() {
    if (mapping != nullptr) {
        ::munmap(mapping, mappingLength);
    }
    if (fd >= 0) {
        ::close(fd);
    }
}

void PersistentInfo::open() {
    const bool writable = access == Access::ReadWrite;
    fd = ::open(devicePath, (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC);
    if (fd < 0) {
        THROW_ERROR_NUMBER("open");
    }
    struct stat status;
    if (::fstat(fd, &status) == 0 && (S_ISREG(status.st_mode) || S_ISBLK(status.st_mode))) {
        off_t end = ::lseek(fd, 0, SEEK_END);
        if (end >= 0 && end < static_cast<off_t>(offset) + static_cast<off_t>(blockLength)) {
            ::close(fd);
            fd = -1;
            THROW_ERROR("%s ends before the block at 0x%x of %u bytes.", devicePath, offset,
                        blockLength);
        }
    }
    pageOffset = offset & (static_cast<unsigned int>(::sysconf(_SC_PAGESIZE)) - 1);
    mappingLength = blockLength + pageOffset;
    const int protection = access == Access::ReadOnly ? PROT_READ : PROT_READ | PROT_WRITE;
    const int sharing = access == Access::PrivateCopy ? MAP_PRIVATE : MAP_SHARED;
    void* mapped = ::mmap(nullptr, mappingLength, protection, sharing, fd,
                          static_cast<off_t>(offset - pageOffset));
    if (mapped == nullptr || mapped == MAP_FAILED) {
        int error = errno;
        ::close(fd);
        fd = -1;
        errno = error;
        THROW_ERROR_NUMBER("mmap");
    }
    mapping = static_cast<unsigned char*>(mapped);
}

void PersistentInfo::addInfo(std::unique_ptr<Base>&& field) {
    unsigned int bitPos = pageOffset * 8 + layoutBits();
    unsigned int end = field->type() == BitsKind ? bitPos / 32 * 4 + 4
                                                 : byteOf(bitPos) + (field->bitSize() + 7) / 8;
    bool crossesWord = field->type() == BitsKind && bitPos % 32 + field->bitSize() > 32;
    if (end > mappingLength || crossesWord) {
        THROW_ERROR("%s does not fit in the block.", field->name.c_str());
    }
    entries.push_back(std::move(field));
}

void PersistentInfo::sync() const {
    if (access != Access::ReadWrite) {
        return;
    }
    if (::msync(mapping, mappingLength, MS_SYNC) != 0) {
        THROW_ERROR_NUMBER("msync");
    }
    if (::fsync(fd) != 0 && errno != EINVAL) {
        THROW_ERROR_NUMBER("fsync");
    }
}

bool PersistentInfo::isZero(unsigned int length) const {
    if (length > blockLength) {
        THROW_ERROR("Range end %u is past the block of %u bytes.", length, blockLength);
    }
    unsigned char const* start = mapping + pageOffset;
    for (unsigned int i = 0; i < length; ++i) {
        if (start[i] != 0) {
            return false;
        }
    }
    return true;
}

unsigned int PersistentInfo::layoutBits() const {
    unsigned int bits = 0;
    for (auto const& entry : entries) {
        bits += entry->bitSize();
    }
    return bits;
}

unsigned int PersistentInfo::size() const {
    return (layoutBits() + 7) / 8;
}

unsigned int PersistentInfo::checksum(unsigned int length) const {
    if (length <= CHECKSUM_START) {
        return CRC_INITIAL;
    }
    if (length > blockLength) {
        THROW_ERROR("Range end %u is past the block of %u bytes.", length, blockLength);
    }
    return crc32Mpeg2(mapping + pageOffset + CHECKSUM_START, length - CHECKSUM_START);
}

void PersistentInfo::setNewMemToDefault(unsigned int from, unsigned int to) const {
    if (from >= to) {
        return;
    }
    if (to > blockLength) {
        THROW_ERROR("Range end %u is past the block of %u bytes.", to, blockLength);
    }
    std::memset(writable() + pageOffset + from, 0, to - from);
}

void PersistentInfo::clearAll() {
    unsigned char* const target = writable();
    unsigned int bitPos = pageOffset * 8;
    for (auto const& entry : entries) {
        switch (entry->type()) {
        case IntKind:
            Int::store(target, bitPos, 0);
            break;
        case BitsKind:
            static_cast<Bits const&>(*entry).setValue(target, bitPos, 0u);
            break;
        default:
            entry->setValue(target, bitPos, "");
            break;
        }
        bitPos += entry->bitSize();
    }
}

void PersistentInfo::printAll() const {
    unsigned int bitPos = pageOffset * 8;
    for (auto const& entry : entries) {
        if ((entry->flags & Hidden) == 0) {
            char const* name = entry->name.c_str();
            unsigned int number;
            std::string text;
            switch (entry->type()) {
            case TextKind:
            case 2:
                entry->value(mapping, bitPos, text);
                std::printf("%25s: %s\n", name, text.c_str());
                break;
            case IntKind:
                number = Int::load(mapping, bitPos);
                std::printf("%25s: %9u (0x%08x)\n", name, number, number);
                break;
            case BitsKind:
                static_cast<Bits const&>(*entry).value(mapping, bitPos, number);
                std::printf("%25s: %9u (0x%08x)\n", name, number, number);
                break;
            default:
                break;
            }
        }
        bitPos += entry->bitSize();
    }
}

void PersistentInfo::printParameters(FILE* stream) const {
    char const* separator = "";
    for (auto const& entry : entries) {
        if (entry->flags == 0) {
            std::fprintf(stream, "%s%s", separator, entry->name.c_str());
            separator = " ";
        }
    }
}

unsigned char* PersistentInfo::writable() const {
    if (access == Access::ReadOnly) {
        THROW_ERROR("%s is open read-only.", devicePath);
    }
    return mapping;
}

PersistentInfo::Located PersistentInfo::find(char const* name) const {
    unsigned int bitPos = pageOffset * 8;
    for (auto const& entry : entries) {
        if (entry->name == name) {
            return {entry.get(), bitPos};
        }
        bitPos += entry->bitSize();
    }
    return {nullptr, 0};
}

PersistentInfo::Located PersistentInfo::findWritable(char const* name, bool force) const {
    Located found = find(name);
    if (found.field != nullptr && (found.field->flags & Private) != 0 && !force) {
        THROW_ERROR("%s is private.", found.field->name.c_str());
    }
    return found;
}

bool PersistentInfo::check(char const* name, char const* text, bool force) const {
    Located found = findWritable(name, force);
    if (found.field == nullptr) {
        return false;
    }
    found.field->checkValue(text);
    return true;
}

template <>
bool PersistentInfo::get<PersistentInfo::Int, unsigned int>(char const* name,
                                                            unsigned int& value) const {
    Located found = find(name);
    if (found.field == nullptr) {
        return false;
    }
    value = Int::load(mapping, found.bitPos);
    return true;
}

template <>
bool PersistentInfo::set<PersistentInfo::Int, unsigned int>(char const* name,
                                                            unsigned int const& value, bool force) {
    Located found = findWritable(name, force);
    if (found.field == nullptr) {
        return false;
    }
    switch (found.field->type()) {
    case IntKind:
        Int::store(writable(), found.bitPos, value);
        break;
    case BitsKind:
        static_cast<Bits const&>(*found.field).setValue(writable(), found.bitPos, value);
        break;
    default:
        THROW_ERROR("%s is a text field.", found.field->name.c_str());
    }
    return true;
}

template <>
bool PersistentInfo::get<PersistentInfo::Base, std::string>(char const* name,
                                                            std::string& value) const {
    Located found = find(name);
    if (found.field == nullptr) {
        return false;
    }
    found.field->value(mapping, found.bitPos, value);
    return true;
}

template <>
bool PersistentInfo::set<PersistentInfo::Base, char const*>(char const* name,
                                                            char const* const& value, bool force) {
    Located found = findWritable(name, force);
    if (found.field == nullptr) {
        return false;
    }
    return found.field->setValue(writable(), found.bitPos, value);
}
