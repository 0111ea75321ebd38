// The I/O floor of a tag reader: for each file named, opens it, reads the
// ID3v2 tag header, the tag it announces (and any tag right behind it) and
// the last 128 bytes, and closes it.  The first read takes up to 64 KB, so
// that a small file costs one read, as in a host with a read-ahead window.
// With --minimal each file costs exactly: open, fstat, a read of the 10-byte
// header, a read of the tag it declares, a read of the last 128 bytes and
// close.  With -r a directory named is walked as kzdump -r walks it: entries
// sorted by name, subdirectories entered, symbolic links to directories
// skipped.  Prints the number of bytes read.
// Usage: kz_io_floor [--minimal] [-r] PATH...
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

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

uint64_t ReadMinimal(const char* path, std::vector<uint8_t>& buffer) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    struct stat info {};
    uint64_t total = 0;
    uint8_t header[10];
    if (fstat(fd, &info) == 0 && pread(fd, header, sizeof header, 0) == sizeof header) {
        total += sizeof header;
        if (std::memcmp(header, "ID3", 3) == 0) {
            const size_t declared = size_t{header[6]} << 21 | size_t{header[7]} << 14 |
                                    size_t{header[8]} << 7 | header[9];
            if (buffer.size() < declared) buffer.resize(declared);
            const ssize_t got = pread(fd, buffer.data(), declared, sizeof header);
            total += got > 0 ? static_cast<uint64_t>(got) : 0;
        }
        if (info.st_size >= 128) {
            uint8_t trailer[128];
            const ssize_t got = pread(fd, trailer, sizeof trailer, info.st_size - 128);
            total += got > 0 ? static_cast<uint64_t>(got) : 0;
        }
    }
    close(fd);
    return total;
}

void Walk(const fs::path& directory, std::vector<std::string>& files) {
    std::error_code ec;
    fs::directory_iterator it(directory, ec);
    if (ec) return;
    std::vector<std::pair<std::string, fs::directory_entry>> entries;
    for (const fs::directory_entry& entry : it) {
        entries.emplace_back(entry.path().filename().native(), entry);
    }
    std::sort(entries.begin(), entries.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [name, entry] : entries) {
        if (entry.is_directory(ec) && !entry.is_symlink(ec)) {
            Walk(entry.path(), files);
        } else if (!entry.is_symlink(ec) || !entry.is_directory(ec)) {
            files.push_back(entry.path().string());
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    bool minimal = false;
    bool recursive = false;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        std::error_code ec;
        if (std::strcmp(argv[i], "--minimal") == 0) {
            minimal = true;
        } else if (std::strcmp(argv[i], "-r") == 0) {
            recursive = true;
        } else if (recursive && fs::is_directory(argv[i], ec)) {
            Walk(argv[i], files);
        } else {
            files.emplace_back(argv[i]);
        }
    }
    std::vector<uint8_t> buffer(kFirstRead);
    uint64_t total = 0;
    for (const std::string& file : files) {
        total += minimal ? ReadMinimal(file.c_str(), buffer) : ReadTags(file.c_str(), buffer);
    }
    std::printf("%llu\n", static_cast<unsigned long long>(total));
    return 0;
}
