#include "file_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace kzdump {

FileStream::FileStream()
    : window_(new uint8_t[kWindowSize]), tail_(new uint8_t[kTailSize]) {
    // The module leaves bytes 0 and 16 alone: byte 0 leads back to this object.
    stream_.reserved0 = this;
    stream_.read = &FileStream::ReadOp;
    stream_.seek = &FileStream::SeekOp;
    stream_.tell = &FileStream::TellOp;
}

FileStream::~FileStream() { Close(); }

bool FileStream::Open(const char* path, std::string& error) {
    Close();
    // O_NONBLOCK: opening a FIFO must not wait for a writer; it is refused
    // below as not a regular file.
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    struct stat info {};
    if (fstat(fd, &info) != 0) {
        error = std::strerror(errno);
        close(fd);
        return false;
    }
    if (S_ISDIR(info.st_mode)) {
        error = "is a directory (use -r to read the files under it)";
        close(fd);
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        error = "not a regular file";
        close(fd);
        return false;
    }
    if (static_cast<uint64_t>(info.st_size) > std::numeric_limits<uint32_t>::max()) {
        error = "larger than 4 GiB: beyond the module's 32-bit positions";
        close(fd);
        return false;
    }
    fd_ = fd;
    size_ = static_cast<uint32_t>(info.st_size);
    position_ = 0;
    windowLength_ = 0;
    nextLoad_ = kFirstLoad;
    tailLength_ = 0;
    return true;
}

void FileStream::Close() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    size_ = 0;
    position_ = 0;
    windowLength_ = 0;
    tailLength_ = 0;
}

uint32_t FileStream::ReadFile(uint8_t* buffer, uint32_t count, uint32_t at) {
    uint32_t done = 0;
    while (done < count) {
        const ssize_t got = pread(fd_, buffer + done, count - done, static_cast<off_t>(at) + done);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += static_cast<uint32_t>(got);
    }
    return done;
}

uint32_t FileStream::Read(uint8_t* buffer, uint32_t count) {
    const uint32_t wanted = std::min(count, size_ - position_);
    if (wanted == 0) return 0;
    uint32_t got = 0;
    if (Holds(windowStart_, windowLength_, position_, wanted)) {
        std::memcpy(buffer, window_.get() + (position_ - windowStart_), wanted);
        got = wanted;
    } else if (Holds(tailStart_, tailLength_, position_, wanted)) {
        std::memcpy(buffer, tail_.get() + (position_ - tailStart_), wanted);
        got = wanted;
    } else if (wanted >= kDirectReadSize) {
        // A large body: what the window already holds of its start is
        // copied, the rest read straight into the caller's buffer.
        uint32_t held = 0;
        if (position_ >= windowStart_ && position_ - windowStart_ < windowLength_) {
            held = windowStart_ + windowLength_ - position_;
            std::memcpy(buffer, window_.get() + (position_ - windowStart_), held);
        }
        got = held + ReadFile(buffer + held, wanted - held, position_ + held);
    } else if (size_ - position_ <= kTailSize) {
        const uint32_t length = std::min(size_, kTailSize);
        tailStart_ = size_ - length;
        tailLength_ = ReadFile(tail_.get(), length, tailStart_);
        got = Holds(tailStart_, tailLength_, position_, wanted) ? wanted : 0;
        if (got != 0) std::memcpy(buffer, tail_.get() + (position_ - tailStart_), got);
    } else {
        if (windowLength_ != 0 && position_ == windowStart_ + windowLength_) {
            nextLoad_ = std::min(nextLoad_ * 4, kWindowSize);
        }
        // A load that would leave no more than the trailer's window unread
        // takes the rest of the file too.
        const uint32_t rest = size_ - position_;
        const uint32_t load = rest <= nextLoad_ + kTailSize ? std::min(rest, kWindowSize)
                                                            : nextLoad_;
        windowStart_ = position_;
        windowLength_ = ReadFile(window_.get(), load, windowStart_);
        got = std::min(wanted, windowLength_);
        std::memcpy(buffer, window_.get(), got);
    }
    position_ += got;
    return got;
}

int32_t FileStream::ReadOp(KzStream* stream, void* buffer, uint32_t count, uint32_t* countRead) {
    auto* self = static_cast<FileStream*>(stream->reserved0);
    const uint32_t got = self->Read(static_cast<uint8_t*>(buffer), count);
    if (countRead != nullptr) *countRead = got;
    return 0;
}

int32_t FileStream::SeekOp(KzStream* stream, uint16_t origin, int32_t offset) {
    auto* self = static_cast<FileStream*>(stream->reserved0);
    int64_t base = 0;
    switch (origin) {
        case SO_SEEK_SET: base = 0; break;
        case SO_SEEK_CUR: base = self->position_; break;
        case SO_SEEK_END: base = self->size_; break;
        default: return 1;
    }
    const int64_t target = base + offset;
    if (target < 0 || target > static_cast<int64_t>(self->size_)) return 1;
    self->position_ = static_cast<uint32_t>(target);
    return 0;
}

int32_t FileStream::TellOp(KzStream* stream, uint32_t* position) {
    auto* self = static_cast<FileStream*>(stream->reserved0);
    if (position != nullptr) *position = self->position_;
    return 0;
}

}  // namespace kzdump
