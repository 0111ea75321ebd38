// A stream over bytes held in memory, with faults a host may show: short
// reads, refused seeks, failed tells, positions misreported.  Shared by the
// tests and the fuzz targets.
#ifndef KZ_TESTS_MEMORY_STREAM_H
#define KZ_TESTS_MEMORY_STREAM_H

#include <cstdint>
#include <functional>
#include <vector>

#include "kz_id3.h"

namespace kztest {

// A seek whose target lies outside 0..size fails with a non-zero result and
// leaves the position alone.
class MemoryStream {
public:
    explicit MemoryStream(std::vector<uint8_t> data = {});
    MemoryStream(const MemoryStream&) = delete;
    MemoryStream& operator=(const MemoryStream&) = delete;

    KzStream* stream() { return &handle_.base; }
    uint32_t position() const { return position_; }
    void set_position(uint32_t position) { position_ = position; }

    // Calls made so far; each fault below receives the running index (from 0)
    // of the call it may spoil.
    int reads = 0;
    int seeks = 0;
    int tells = 0;
    // The most bytes this read delivers (still bounded by the data).
    std::function<uint32_t(int read, uint32_t count)> readLimit;
    std::function<bool(int read)> failRead;    // fails and writes nothing
    std::function<bool(int seek)> refuseSeek;  // fails and moves nothing
    std::function<bool(int tell)> failTell;    // fails and writes nothing
    bool tellsZero = false;   // every tell answers 0
    bool neverMoves = false;  // reads deliver from the start, seeks succeed in place

private:
    struct Handle {
        KzStream base;
        MemoryStream* owner;
    };
    static MemoryStream* Owner(KzStream* stream);
    static int32_t Read(KzStream* stream, void* buffer, uint32_t count, uint32_t* countRead);
    static int32_t Seek(KzStream* stream, uint16_t origin, int32_t offset);
    static int32_t Tell(KzStream* stream, uint32_t* position);

    Handle handle_;
    std::vector<uint8_t> data_;
    uint32_t position_ = 0;
};

}  // namespace kztest

#endif  // KZ_TESTS_MEMORY_STREAM_H
