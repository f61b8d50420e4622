// The memories that the settings service made, mapped as they are: never created, never reset,
// never written by the mapping.
//
// Each memory is mapped by this class itself, with the object's header checked against the size
// this program was built for, and the object it mapped is remembered (device and inode). An
// object that was removed or replaced since (the service ended or started again) is unmapped by
// refresh(), and mapped afresh once it is there again, so that a long-running program follows a
// restarted service instead of reading an orphaned copy. A memory is mapped once however often it
// is asked for. Mapping a memory points its gMem<Name> at the data (gen::setMemoryBase), so the
// catalogue's getters and setters work on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <vector>

class MappedMemories {
public:
    explicit MappedMemories(bool readOnly = false);
    // Unmaps every memory and points its gMem<Name> at nothing.
    ~MappedMemories();
    MappedMemories(const MappedMemories&) = delete;
    MappedMemories& operator=(const MappedMemories&) = delete;

    // The file of the memory's shared-memory object.
    static std::string objectPath(uint32_t memory);
    // True when the memory's shared-memory object exists.
    static bool exists(uint32_t memory);
    // Maps the memory's current object, if it is not mapped yet; throws ClientError when it does
    // not exist, is not complete or was made for another layout, and AccessRefused (deviceaccess.h)
    // when this user may not open it.
    void open(uint32_t memory);
    // open() of every memory.
    void openAll();
    // Maps read-only from now on (for a reader that must not write); the default is read-write,
    // as the setters need.
    void setReadOnly(bool readOnly);
    // Unmaps each mapped memory whose object was removed or replaced, and maps a memory again
    // whose object came back; true when any of them changed. A memory that cannot be mapped yet
    // is tried again by the next call; one that this user may not open throws AccessRefused.
    bool refresh();
    // Unmaps every memory; refresh() maps again those that were asked for.
    void closeAll();
    // True when every memory that was asked for is mapped.
    bool complete() const;

private:
    struct Mapping {
        uint8_t* start = nullptr;
        size_t length = 0;
        dev_t device = 0;
        ino_t inode = 0;
        bool wanted = false; // asked for once: followed by refresh()

        // True when this mapping is of the object `status` describes.
        bool isOf(const struct stat& status) const {
            return start != nullptr && device == status.st_dev && inode == status.st_ino;
        }
    };

    void map(uint32_t memory);
    void unmap(uint32_t memory);

    std::vector<Mapping> mappings;
    bool readOnly;
};
