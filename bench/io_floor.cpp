// The I/O floor of a tag reader: for each file named, opens it, reads the
// ID3v2 tag header, the tag it announces (and any tag right behind it) and
// the last 128 bytes, and closes it.  The first read takes up to 64 KB, so
// that a small file costs one read, as in a host with a read-ahead window.
// Prints the number of bytes read.
// Usage: kz_io_floor FILE...
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr size_t kFirstRead = 64 * 1024;

uint64_t ReadTags(const char* path, std::vector<uint8_t>& buffer) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    struct stat info {};
    uint64_t total = 0;
    if (fstat(fd, &info) == 0) {
        const auto size = static_cast<size_t>(info.st_size);
        // Bytes [0, held) of the file are in the buffer.
        ssize_t got = pread(fd, buffer.data(), std::min(size, kFirstRead), 0);
        size_t held = got > 0 ? static_cast<size_t>(got) : 0;
        total += held;
        size_t at = 0;
        while (at + 10 <= held && std::memcmp(&buffer[at], "ID3", 3) == 0) {
            const uint8_t* h = &buffer[at + 6];
            const size_t end = std::min(size, at + 10 + (size_t{h[0]} << 21 | size_t{h[1]} << 14 |
                                                         size_t{h[2]} << 7 | h[3]));
            if (end + 10 > held) {
                // The rest of the tag, and the next tag's header if any.
                const size_t want = std::min(size, end + 10) - held;
                if (buffer.size() < held + want) buffer.resize(held + want);
                got = pread(fd, buffer.data() + held, want, static_cast<off_t>(held));
                held += got > 0 ? static_cast<size_t>(got) : 0;
                total += got > 0 ? static_cast<uint64_t>(got) : 0;
            }
            at = end;
        }
        if (size >= 128 && size > held) {
            uint8_t trailer[128];
            got = pread(fd, trailer, sizeof trailer, static_cast<off_t>(size - 128));
            total += got > 0 ? static_cast<uint64_t>(got) : 0;
        }
    }
    close(fd);
    return total;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<uint8_t> buffer(kFirstRead);
    uint64_t total = 0;
    for (int i = 1; i < argc; ++i) total += ReadTags(argv[i], buffer);
    std::printf("%llu\n", static_cast<unsigned long long>(total));
    return 0;
}
