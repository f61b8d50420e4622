#include "logdescriptor.h"

#include <sys/stat.h>

namespace logtest {

int descriptorOf(const char* path) {
    struct stat wanted {};
    if (stat(path, &wanted) != 0) {
        return -1;
    }
    for (int fd = 0; fd < 1024; ++fd) {
        struct stat status {};
        if (fstat(fd, &status) == 0 && status.st_dev == wanted.st_dev &&
            status.st_ino == wanted.st_ino) {
            return fd;
        }
    }
    return -1;
}

} // namespace logtest
