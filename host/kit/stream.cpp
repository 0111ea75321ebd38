#include "stream.h"

#include "kz_host.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace kzhost {

namespace {

Source* Owner(KzStream* stream) { return static_cast<Source*>(stream->reserved0); }

}  // namespace

Source::Source() {
    // The module leaves bytes 0 and 16 alone: byte 0 leads back to this object.
    stream_.reserved0 = this;
    stream_.read = &Source::ReadOp;
    stream_.seek = &Source::SeekOp;
    stream_.tell = &Source::TellOp;
}

int32_t Source::ReadOp(KzStream* stream, void* buffer, uint32_t count, uint32_t* countRead) {
    const uint32_t got = Owner(stream)->Read(static_cast<uint8_t*>(buffer), count);
    if (countRead != nullptr) *countRead = got;
    return 0;
}

int32_t Source::SeekOp(KzStream* stream, uint16_t origin, int32_t offset) {
    Source* self = Owner(stream);
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

int32_t Source::TellOp(KzStream* stream, uint32_t* position) {
    if (position != nullptr) *position = Owner(stream)->position_;
    return 0;
}

// ---- Memory ------------------------------------------------------------------------

void MemorySource::Open(const uint8_t* data, uint32_t size) {
    data_ = data;
    size_ = size;
    position_ = 0;
}

uint32_t MemorySource::ReadAt(uint32_t at, uint8_t* buffer, uint32_t count) {
    if (at >= size_) return 0;
    const uint32_t got = std::min(count, size_ - at);
    std::memcpy(buffer, data_ + at, got);
    return got;
}

int32_t MemorySource::ReadOp(KzStream* stream, void* buffer, uint32_t count,
                             uint32_t* countRead) {
    // Everything is settled before the copy, so that the copy is the last
    // call and nothing needs keeping across it.
    auto* self = static_cast<MemorySource*>(Owner(stream));
    const uint32_t at = self->position_;
    const uint32_t got = self->Advance(count);
    if (countRead != nullptr) *countRead = got;
    if (got != 0) std::memcpy(buffer, self->data_ + at, got);
    return 0;
}

uint32_t MemorySource::Read(uint8_t* buffer, uint32_t count) {
    uint32_t got = 0;
    ReadOp(Stream(), buffer, count, &got);
    return got;
}

// ---- File --------------------------------------------------------------------------

FileSource::FileSource() : window_(new uint8_t[kWindowSize]), tail_(new uint8_t[kTailSize]) {}

FileSource::~FileSource() { Close(); }

int FileSource::Open(int directory, const char* path, int& error) {
    Close();
    // O_NONBLOCK: opening a FIFO must not wait for a writer; it is refused
    // below as not a regular file.
    const int fd = openat(directory < 0 ? AT_FDCWD : directory, path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        error = errno;
        return KZ_HOST_ERROR_IO;
    }
    struct stat info {};
    int status = KZ_HOST_OK;
    if (fstat(fd, &info) != 0) {
        error = errno;
        status = KZ_HOST_ERROR_IO;
    } else if (!S_ISREG(info.st_mode)) {
        error = S_ISDIR(info.st_mode) ? EISDIR : 0;
        status = KZ_HOST_ERROR_NOT_REGULAR;
    } else if (static_cast<uint64_t>(info.st_size) > std::numeric_limits<uint32_t>::max()) {
        error = 0;
        status = KZ_HOST_ERROR_TOO_LARGE;
    }
    if (status != KZ_HOST_OK) {
        close(fd);
        return status;
    }
    fd_ = fd;
    size_ = static_cast<uint32_t>(info.st_size);
    return KZ_HOST_OK;
}

void FileSource::Close() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    readError_ = 0;
    size_ = 0;
    position_ = 0;
    windowLength_ = 0;
    nextLoad_ = kFirstLoad;
    tailLength_ = 0;
}

uint32_t FileSource::ReadFile(uint8_t* buffer, uint32_t count, uint32_t at) {
    uint32_t done = 0;
    while (done < count) {
        const ssize_t got = pread(fd_, buffer + done, count - done, static_cast<off_t>(at) + done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 && readError_ == 0) readError_ = errno;
        if (got <= 0) break;
        done += static_cast<uint32_t>(got);
    }
    return done;
}

bool FileSource::FromWindows(uint32_t at, uint8_t* buffer, uint32_t count) const {
    if (Holds(windowStart_, windowLength_, at, count)) {
        std::memcpy(buffer, window_.get() + (at - windowStart_), count);
        return true;
    }
    if (Holds(tailStart_, tailLength_, at, count)) {
        std::memcpy(buffer, tail_.get() + (at - tailStart_), count);
        return true;
    }
    return false;
}

void FileSource::LoadTail() {
    const uint32_t length = std::min(size_, kTailSize);
    tailStart_ = size_ - length;
    tailLength_ = ReadFile(tail_.get(), length, tailStart_);
}

void FileSource::LoadWindow(uint32_t at, uint32_t atLeast) {
    if (windowLength_ != 0 && at == windowStart_ + windowLength_) {
        nextLoad_ = std::min(nextLoad_ * 4, kWindowSize);
    }
    // A load that would leave no more than the trailer's window unread
    // takes the rest of the file too.  A load never stops inside the read
    // it serves: the module reads a body once and does not come back for
    // the rest.
    const uint32_t rest = size_ - at;
    const uint32_t load = rest <= nextLoad_ + kTailSize ? std::min(rest, kWindowSize)
                                                        : std::max(nextLoad_, atLeast);
    windowStart_ = at;
    windowLength_ = ReadFile(window_.get(), std::min(load, rest), at);
}

uint32_t FileSource::FromTail(uint32_t at, uint8_t* buffer, uint32_t count) const {
    if (at < tailStart_ || at - tailStart_ >= tailLength_) return 0;
    const uint32_t got = std::min(count, tailLength_ - (at - tailStart_));
    std::memcpy(buffer, tail_.get() + (at - tailStart_), got);
    return got;
}

uint32_t FileSource::Read(uint8_t* buffer, uint32_t count) {
    const uint32_t wanted = std::min(count, size_ - position_);
    if (wanted == 0) return 0;
    uint32_t got = 0;
    if (FromWindows(position_, buffer, wanted)) {
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
        LoadTail();
        got = FromTail(position_, buffer, wanted);
    } else {
        LoadWindow(position_, wanted);
        got = std::min(wanted, windowLength_);
        std::memcpy(buffer, window_.get(), got);
    }
    position_ += got;
    return got;
}

uint32_t FileSource::ReadAt(uint32_t at, uint8_t* buffer, uint32_t count) {
    if (at >= size_) return 0;
    const uint32_t wanted = std::min(count, size_ - at);
    if (FromWindows(at, buffer, wanted)) return wanted;
    // The start and the end of the file are what the module reads first:
    // loading them here spares it a read.
    if (size_ - at <= kTailSize) {
        LoadTail();
        return FromTail(at, buffer, wanted);
    }
    if (at == 0 && windowLength_ == 0 && wanted <= kWindowSize) {
        LoadWindow(0, wanted);
        const uint32_t got = std::min(wanted, windowLength_);
        std::memcpy(buffer, window_.get(), got);
        return got;
    }
    return ReadFile(buffer, wanted, at);
}

}  // namespace kzhost
