#include "kmsgcapture.h"

#include "logline.h"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>

namespace testsupport {

namespace {

off_t plainFileSize(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throw std::runtime_error(path + " is not a plain file: run this test inside a device root "
                                        "(tools/devroot/devroot exec)");
    }
    return status.st_size;
}

} // namespace

KmsgCapture::KmsgCapture(std::string path)
    : path(std::move(path)), mark(plainFileSize(this->path)) {}

std::string KmsgCapture::rawText() const {
    std::ifstream file(path, std::ios::binary);
    file.seekg(mark);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

std::string KmsgCapture::text() const {
    return withoutPriorities(rawText());
}

std::vector<std::string> KmsgCapture::lines() const {
    std::vector<std::string> result;
    std::istringstream stream(text());
    for (std::string line; std::getline(stream, line);) {
        result.push_back(line);
    }
    return result;
}

} // namespace testsupport
