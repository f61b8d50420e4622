// A small typed key/value block kept in a byte range of a device file (a raw
// eMMC partition, or physical memory through /dev/mem).
//
// The range is mapped shared and read-write; every field is read and written
// in place in that mapping, so there is no copy to flush.  The ordered list of
// field descriptors is the layout: the first field starts at the block's first
// bit, each next one at the previous position plus the previous bitSize().
// Int and String fields start at the first whole byte at or after their
// position (the next position still advances from the unrounded one); Bits
// fields live in the naturally aligned 32-bit words of the mapping, from the
// most significant bit down.
//
// Choices made for safety, beyond the plain layout rules:
// - open() refuses a regular file or block device that ends before the block
//   does (error "%s ends before the block at 0x%x of %u bytes."), so that no
//   access can run past the end of an image file; a character device such as
//   /dev/mem has no size and is trusted.
// - open() treats both a null address and the mapping call's own failure value
//   as a failed mapping (errno error "mmap"), and closes the descriptor first.
// - addInfo() refuses a field that would reach past the block, or a Bits field
//   that would cross a 32-bit word ("%s does not fit in the block."); a String
//   narrower than 2 bytes or a Bits field not 1 to 32 bits wide is refused by
//   its constructor ("%s has an invalid width %u.").
// - checksum() and setNewMemToDefault() refuse a range that ends past the
//   block ("Range end %u is past the block of %u bytes.") instead of reading or
//   writing outside it.
// - A String is read up to its first zero byte but never past its own last
//   byte: a field without a terminator yields all of its bytes and nothing of
//   the next field.
// - Int fields are read and written as one 32-bit access when they are
//   4-byte aligned (device registers need whole-word access), bytewise
//   otherwise; Bits words are always accessed as one aligned 32-bit word.
//
// Access: a block is opened in one of three ways (Access).  ReadWrite maps
// the range shared and writable, so writes reach the device; ReadOnly opens
// the device read-only and maps it read-only; PrivateCopy opens it read-only
// and maps a private copy-on-write copy, so that the record can be repaired
// or changed in memory (for reading it as a writer would leave it) while the
// device is never written.  sync() flushes a ReadWrite block's writes to the
// device (msync, then fsync) before a tool reports success.
//
// Typed integer writes stay inside their field: an Int field takes the four
// bytes, a Bits field only its own bits (the value masked), a String field
// refuses them ("%s is a text field.").  A write to a ReadOnly block raises
// "%s is open read-only." with the device's path instead of faulting.
//
// Errors are raised with throwError/throwErrorNumber (logged at Error, then a
// std::runtime_error); text that is not a number for an Int or Bits field
// raises std::invalid_argument("stoul"), a number that does not fit 32 bits
// std::out_of_range("stoul"), on every platform alike.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

class PersistentInfo {
public:
    enum Flags : unsigned int { Private = 1, Hidden = 2 };
    enum Kind : unsigned int { TextKind = 0, IntKind = 1, BitsKind = 3 };
    enum class Access { ReadWrite, ReadOnly, PrivateCopy };

    // A field descriptor: its key, its flags and how its value is stored.
    class Base {
    public:
        Base(char const* name, unsigned int flags) : name(name), flags(flags) {}
        virtual ~Base() = default;
        Base(const Base&) = delete;
        Base& operator=(const Base&) = delete;

        virtual unsigned int bitSize() const = 0;
        virtual void value(unsigned char* mapping, unsigned int bitPos, std::string& out) const = 0;
        virtual bool setValue(unsigned char* mapping, unsigned int bitPos,
                              char const* text) const = 0;
        virtual unsigned int type() const { return TextKind; }
        // Raises the error that setValue would raise for this text, writes nothing.
        virtual void checkValue(char const* text) const = 0;

        std::string name;
        unsigned int flags;
    };

    // An unsigned 32-bit number, native little-endian, at the rounded-up byte.
    class Int : public Base {
    public:
        using Base::Base;
        unsigned int bitSize() const override { return 32; }
        void value(unsigned char* mapping, unsigned int bitPos, std::string& out) const override;
        bool setValue(unsigned char* mapping, unsigned int bitPos, char const* text) const override;
        unsigned int type() const override { return IntKind; }
        void checkValue(char const* text) const override;

        void value(unsigned char* mapping, unsigned int bitPos, unsigned int& out) const;
        void setValue(unsigned char* mapping, unsigned int bitPos, unsigned int in) const;

        // The four bytes at the rounded-up byte of bitPos, whatever field is there.
        static unsigned int load(unsigned char const* mapping, unsigned int bitPos);
        static void store(unsigned char* mapping, unsigned int bitPos, unsigned int in);
    };

    // Zero-terminated text of at most length - 2 characters in length bytes.
    class String : public Base {
    public:
        String(char const* name, unsigned int flags, unsigned int length);
        unsigned int bitSize() const override { return length * 8; }
        void value(unsigned char* mapping, unsigned int bitPos, std::string& out) const override;
        bool setValue(unsigned char* mapping, unsigned int bitPos, char const* text) const override;
        void checkValue(char const* text) const override;

        unsigned int length;
    };

    // width bits (1 to 32) of a 32-bit word, placed from the most significant bit down.
    class Bits : public Base {
    public:
        Bits(char const* name, unsigned int flags, unsigned int width);
        unsigned int bitSize() const override { return width; }
        void value(unsigned char* mapping, unsigned int bitPos, std::string& out) const override;
        bool setValue(unsigned char* mapping, unsigned int bitPos, char const* text) const override;
        unsigned int type() const override { return BitsKind; }
        void checkValue(char const* text) const override;

        void value(unsigned char* mapping, unsigned int bitPos, unsigned int& out) const;
        void setValue(unsigned char* mapping, unsigned int bitPos, unsigned int in) const;
        // Fills mask and shift and returns the byte offset of the field's word.
        unsigned int getParams(unsigned int bitPos, unsigned int& mask, unsigned int& shift) const;

        unsigned int width;
    };

    // Opens and maps blockLength bytes at offset of device; throws on failure.
    PersistentInfo(char const* device, unsigned int offset, unsigned int blockLength,
                   Access access = Access::ReadWrite);
    ~PersistentInfo();
    PersistentInfo(const PersistentInfo&) = delete;
    PersistentInfo& operator=(const PersistentInfo&) = delete;

    void addInfo(std::unique_ptr<Base>&& field);
    // Flushes the writes to the device: msync of the mapping, then fsync of
    // the device (a device that cannot be flushed that way, EINVAL, counts as
    // flushed); errno errors "msync" and "fsync".  Nothing for a block that is
    // not ReadWrite.
    void sync() const;
    // True when the block's first `length` bytes are all zero.
    bool isZero(unsigned int length) const;
    // Bytes of the layout: the fields' bits summed and rounded up.
    unsigned int size() const;
    // CRC-32/MPEG-2 of the block's bytes 12 to length - 1; 0xFFFFFFFF for length <= 12.
    unsigned int checksum(unsigned int length) const;
    // Sets the block's bytes from to to - 1 to 0; nothing unless from < to.
    void setNewMemToDefault(unsigned int from, unsigned int to) const;
    // Every Int to 0, every Bits field's bits to 0, every other field to "".
    void clearAll();
    // Every field that is not Hidden, one line each, to standard output.
    void printAll() const;
    // The names of the fields whose flags are 0, separated by one blank.
    void printParameters(FILE* stream) const;

    // Access by name; false (and nothing touched) if no field has the name.
    // The specialisations below are the supported forms: get<Int, unsigned
    // int> reads the four bytes at the field's rounded-up byte whatever its
    // kind; set<Int, unsigned int> writes inside the field only (see above);
    // <Base, std::string> and <Base, char const*> go through the field's own
    // text conversion.  set raises "%s is private." for a Private field unless
    // force is true.
    template <class Field, class Value> bool get(char const* name, Value& value) const;
    template <class Field, class Value> bool set(char const* name, Value const& value, bool force);

    // The checks of set<Base, char const*> without the write: false if no
    // field has the name, otherwise the errors that set would raise.
    bool check(char const* name, char const* text, bool force) const;

    char const* const devicePath;
    unsigned int const offset;
    unsigned int const blockLength;
    Access const access;

private:
    struct Located {
        Base const* field;
        unsigned int bitPos;
    };

    void open();
    unsigned int layoutBits() const;
    Located find(char const* name) const;
    Located findWritable(char const* name, bool force) const;
    // The mapping, for a write; raises "%s is open read-only." for a ReadOnly block.
    unsigned char* writable() const;

    int fd;
    unsigned char* mapping;
    unsigned int pageOffset;
    unsigned int mappingLength;
    std::vector<std::unique_ptr<Base>> entries;
};

template <>
bool PersistentInfo::get<PersistentInfo::Int, unsigned int>(char const* name,
                                                            unsigned int& value) const;
template <>
bool PersistentInfo::set<PersistentInfo::Int, unsigned int>(char const* name,
                                                            unsigned int const& value, bool force);
template <>
bool PersistentInfo::get<PersistentInfo::Base, std::string>(char const* name,
                                                            std::string& value) const;
template <>
bool PersistentInfo::set<PersistentInfo::Base, char const*>(char const* name,
                                                            char const* const& value, bool force);
