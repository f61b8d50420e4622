// One named POSIX shared-memory object holding a memory's record.
//
// Layout of the object: a 4-byte header with the data size (native byte order) written by the
// creator, then the data. address() compares the header with the size this program was built
// with, so a program built against another catalogue cannot read a foreign layout.
//
// create() reports whether an object of that name existed already (its contents are kept); the
// catalogue's start-up writes only the default pieces into one that did not (it reads as zeros).
// Access (see ownership.h): create() makes the object with mode 0660 and this
// process's group whatever the umask, with O_EXCL.  An object of that name
// that another user made, or a link in its place, is removed (a Warn line
// names it and its owner) and made anew; one that cannot be removed refuses
// the start.  An object of this process's own user, left by an earlier run, is
// reused with its contents, its mode and group set right.  A failed mapping
// (MAP_FAILED as well as a null address) throws "mmap <name>".
//
// close() clears the created mark once the name has been removed, so that a later close() (the
// destructor's) does not try to remove it again.
#pragma once

#include <cstdint>
#include <string>

class SharedMemory {
public:
    SharedMemory(const char* name, unsigned size);
    ~SharedMemory();
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    // Creates the object, or opens it when it exists and belongs to this process's user,
    // read-write, and sets its length to the data size plus the header. Returns true when
    // the object existed before.
    bool create();
    // Opens an existing object read-write.
    void open();
    // Maps the object on the first call and returns the start of the data.
    uint8_t* address();
    // Unmaps (best effort), closes, and removes the name if this instance created the object.
    void close();

    const std::string& getName() const { return name; }
    unsigned getSize() const { return size; }

private:
    bool openExisting();

    std::string name;
    uint32_t size;
    int fd;
    uint8_t* mapping;
    uint8_t* data;
    bool created;
};
