// The stream objects the kit hands the module: a file read through a
// read-ahead window, and a buffer in memory.  Both also serve the bytes that
// type detection looks at, without moving the module's position.
#ifndef KZ_HOST_STREAM_H
#define KZ_HOST_STREAM_H

#include "kz_id3.h"

#include <algorithm>
#include <cstdint>
#include <memory>

namespace kzhost {

class Source {
public:
    Source();
    virtual ~Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    KzStream* Stream() { return &stream_; }
    uint32_t Size() const { return size_; }
    // Moves the position without the module, as a host may between calls.
    void Rewind() { position_ = 0; }
    // Copies up to `count` bytes at `at` into `buffer`; returns how many.
    virtual uint32_t ReadAt(uint32_t at, uint8_t* buffer, uint32_t count) = 0;
    // The errno of the first read that failed since the source was opened,
    // or 0.
    virtual int ReadError() const { return 0; }

protected:
    using ReadRoutine = int32_t (*)(KzStream* stream, void* buffer, uint32_t count,
                                    uint32_t* countRead);
    // Reads at the position and moves it past what was read.
    virtual uint32_t Read(uint8_t* buffer, uint32_t count) = 0;
    // A read operation of the source's own, instead of one through Read.
    void SetReadRoutine(ReadRoutine routine) { stream_.read = routine; }

    uint32_t size_ = 0;
    uint32_t position_ = 0;

private:
    static int32_t ReadOp(KzStream* stream, void* buffer, uint32_t count, uint32_t* countRead);
    static int32_t SeekOp(KzStream* stream, uint16_t origin, int32_t offset);
    static int32_t TellOp(KzStream* stream, uint32_t* position);

    KzStream stream_{};
};

class MemorySource final : public Source {
public:
    MemorySource() { SetReadRoutine(&ReadOp); }
    void Open(const uint8_t* data, uint32_t size);
    uint32_t ReadAt(uint32_t at, uint8_t* buffer, uint32_t count) override;

private:
    uint32_t Read(uint8_t* buffer, uint32_t count) override;
    // The module reads a small tag's headers and bodies one call each: no
    // virtual call on the way.
    static int32_t ReadOp(KzStream* stream, void* buffer, uint32_t count, uint32_t* countRead);
    // Moves the position past the next `count` bytes, or as many as there
    // are; returns how many.
    uint32_t Advance(uint32_t count) {
        const uint32_t got = position_ < size_ ? std::min(count, size_ - position_) : 0;
        position_ += got;
        return got;
    }
    const uint8_t* data_ = nullptr;
};

// Small reads are served from a window loaded at the read position, so that
// the many small reads of a tag (headers, short bodies) cost one system
// call, while a large body is read straight into the module's buffer.
class FileSource final : public Source {
public:
    FileSource();
    ~FileSource() override;

    // Opens a regular file, a relative path from the open `directory` (-1:
    // the working directory): KZ_HOST_OK, or a KZ_HOST_ERROR_* status with
    // the errno of the failed call in `error` (EISDIR for a directory).
    int Open(int directory, const char* path, int& error);
    void Close();
    int ReadError() const override { return readError_; }
    uint32_t ReadAt(uint32_t at, uint8_t* buffer, uint32_t count) override;

private:
    // A file's first load is small, since most tags are; each load that goes
    // on where the last one ended is four times larger, up to the buffer.
    // The tail window holds the end of the file, where the ID3v1 trailer
    // lies.
    static constexpr uint32_t kWindowSize = 64 * 1024;
    static constexpr uint32_t kFirstLoad = 8 * 1024;
    static constexpr uint32_t kTailSize = 4 * 1024;
    // Reads of at least this many bytes that miss the windows go straight
    // into the caller's buffer.
    static constexpr uint32_t kDirectReadSize = 16 * 1024;

    uint32_t Read(uint8_t* buffer, uint32_t count) override;
    uint32_t ReadFile(uint8_t* buffer, uint32_t count, uint32_t at);
    // Serves [at, at + count) from a window when one holds it; false if not.
    bool FromWindows(uint32_t at, uint8_t* buffer, uint32_t count) const;
    void LoadTail();
    // Up to `count` bytes at `at` from the tail window; how many.
    uint32_t FromTail(uint32_t at, uint8_t* buffer, uint32_t count) const;
    // Loads the window at `at` with at least `atLeast` bytes (at most the
    // window's size), unless the file ends first.
    void LoadWindow(uint32_t at, uint32_t atLeast);
    static bool Holds(uint32_t start, uint32_t length, uint32_t at, uint32_t count) {
        return at >= start && count <= length && at - start <= length - count;
    }

    int fd_ = -1;
    int readError_ = 0;
    std::unique_ptr<uint8_t[]> window_;
    uint32_t windowStart_ = 0;
    uint32_t windowLength_ = 0;
    uint32_t nextLoad_ = kFirstLoad;
    std::unique_ptr<uint8_t[]> tail_;
    uint32_t tailStart_ = 0;
    uint32_t tailLength_ = 0;
};

}  // namespace kzhost

#endif  // KZ_HOST_STREAM_H
