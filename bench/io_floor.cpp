// The I/O floor of a tag reader: for each file named, opens it, reads the
// ID3v2 tag header, the tag it announces (and any tag right behind it) and
// the last 128 bytes, and closes it.  Prints the number of bytes read.
// Usage: kz_io_floor FILE...
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

uint64_t ReadAt(int fd, std::vector<uint8_t>& buffer, size_t count, off_t at) {
    if (buffer.size() < count) buffer.resize(count);
    const ssize_t got = pread(fd, buffer.data(), count, at);
    return got > 0 ? static_cast<uint64_t>(got) : 0;
}

uint64_t ReadTags(const char* path, std::vector<uint8_t>& buffer) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    struct stat info {};
    uint64_t total = 0;
    if (fstat(fd, &info) == 0) {
        off_t at = 0;
        uint8_t header[10];
        while (pread(fd, header, sizeof header, at) == sizeof header &&
               std::memcmp(header, "ID3", 3) == 0) {
            total += sizeof header;
            const size_t size = size_t{header[6]} << 21 | size_t{header[7]} << 14 |
                                size_t{header[8]} << 7 | header[9];
            total += ReadAt(fd, buffer, size, at + 10);
            at += 10 + static_cast<off_t>(size);
        }
        if (info.st_size >= 128) total += ReadAt(fd, buffer, 128, info.st_size - 128);
    }
    close(fd);
    return total;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<uint8_t> buffer(1 << 16);
    uint64_t total = 0;
    for (int i = 1; i < argc; ++i) total += ReadTags(argv[i], buffer);
    std::printf("%llu\n", static_cast<unsigned long long>(total));
    return 0;
}
