#include "deviceimage.h"

#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace deviceimage {

namespace {

int openOrThrow(char const* path, int flags) {
    int fd = ::open(path, flags | O_CLOEXEC);
    if (fd < 0) {
        throw std::runtime_error(std::string("cannot open ") + path);
    }
    return fd;
}

} // namespace

Bytes read(char const* path, off_t offset, std::size_t count) {
    int fd = openOrThrow(path, O_RDONLY);
    Bytes bytes(count);
    ssize_t got = ::pread(fd, bytes.data(), count, offset);
    ::close(fd);
    if (got < 0) {
        throw std::runtime_error(std::string("cannot read ") + path);
    }
    bytes.resize(static_cast<std::size_t>(got));
    return bytes;
}

void write(char const* path, off_t offset, Bytes const& bytes) {
    int fd = openOrThrow(path, O_WRONLY);
    ssize_t put = ::pwrite(fd, bytes.data(), bytes.size(), offset);
    ::close(fd);
    if (put != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error(std::string("cannot write ") + path);
    }
}

off_t fileSize(char const* path) {
    struct stat status;
    if (::stat(path, &status) != 0) {
        throw std::runtime_error(std::string("cannot stat ") + path);
    }
    return status.st_size;
}

void resize(char const* path, off_t size) {
    if (::truncate(path, size) != 0) {
        throw std::runtime_error(std::string("cannot resize ") + path);
    }
}

void zeroMmc() {
    resize(MMC, 0);
    resize(MMC, MMC_SIZE);
}

std::uint32_t readWord(char const* path, off_t offset) {
    Bytes bytes = read(path, offset, 4);
    return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

void writeWord(char const* path, off_t offset, std::uint32_t value) {
    write(path, offset,
          {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
           static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)});
}

Bytes record() {
    return read(MMC, RECORD_OFFSET, RECORD_REGION);
}

void writeRecord(Bytes const& bytes) {
    write(MMC, RECORD_OFFSET, bytes);
}

std::uint32_t registerWord() {
    return readWord(MEM, REGISTER_ADDRESS);
}

void setRegisterWord(std::uint32_t value) {
    writeWord(MEM, REGISTER_ADDRESS, value);
}

std::string KernelLog::text() const {
    return capture.text();
}

bool KernelLog::contains(std::string const& message) const {
    return text().find(message) != std::string::npos;
}

std::string KernelLog::line(std::string const& message) const {
    std::string all = text();
    std::string::size_type at = all.find(message);
    if (at == std::string::npos) {
        return {};
    }
    std::string::size_type begin = all.rfind('\n', at);
    begin = begin == std::string::npos ? 0 : begin + 1;
    return all.substr(begin, all.find('\n', at) - begin);
}

} // namespace deviceimage
