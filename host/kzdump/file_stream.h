// The stream object kzdump hands the module: a file read through a
// read-ahead window, so that the many small reads of a tag (headers, short
// bodies) cost one system call, while a large body is read straight into
// the module's buffer.
#ifndef KZDUMP_FILE_STREAM_H
#define KZDUMP_FILE_STREAM_H

#include "kz_id3.h"

#include <cstdint>
#include <memory>
#include <string>

namespace kzdump {

class FileStream {
public:
    FileStream();
    ~FileStream();
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;

    // Opens a regular file; on failure returns false with the reason.
    bool Open(const char* path, std::string& error);
    void Close();

    KzStream* Stream() { return &stream_; }
    uint32_t Size() const { return size_; }
    // Moves the position without the module, as a host may between calls.
    void Rewind() { position_ = 0; }

private:
    // Small reads are served from a window loaded at the read position.  A
    // file's first load is small, since most tags are; each load that goes
    // on where the last one ended is four times larger, up to the buffer.
    // The tail window holds the end of the file, where the ID3v1 trailer
    // lies.
    static constexpr uint32_t kWindowSize = 64 * 1024;
    static constexpr uint32_t kFirstLoad = 8 * 1024;
    static constexpr uint32_t kTailSize = 4 * 1024;
    // Reads of at least this many bytes that miss the windows go straight
    // into the caller's buffer.
    static constexpr uint32_t kDirectReadSize = 16 * 1024;

    static int32_t ReadOp(KzStream* stream, void* buffer, uint32_t count, uint32_t* countRead);
    static int32_t SeekOp(KzStream* stream, uint16_t origin, int32_t offset);
    static int32_t TellOp(KzStream* stream, uint32_t* position);

    uint32_t Read(uint8_t* buffer, uint32_t count);
    uint32_t ReadFile(uint8_t* buffer, uint32_t count, uint32_t at);
    static bool Holds(uint32_t start, uint32_t length, uint32_t at, uint32_t count) {
        return at >= start && count <= length && at - start <= length - count;
    }

    KzStream stream_{};
    int fd_ = -1;
    uint32_t size_ = 0;
    uint32_t position_ = 0;
    std::unique_ptr<uint8_t[]> window_;
    uint32_t windowStart_ = 0;
    uint32_t windowLength_ = 0;
    uint32_t nextLoad_ = kFirstLoad;
    std::unique_ptr<uint8_t[]> tail_;
    uint32_t tailStart_ = 0;
    uint32_t tailLength_ = 0;
};

}  // namespace kzdump

#endif  // KZDUMP_FILE_STREAM_H
