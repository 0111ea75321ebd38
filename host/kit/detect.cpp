#include "detect.h"

#include "kz_host.h"

#include <cstring>

namespace kzhost {

namespace {

constexpr uint32_t kTagHeaderSize = 10;
constexpr uint32_t kTrailerSize = 128;
// How far past the tags the first audio frame is looked for.
constexpr uint32_t kSearchLength = 64 * 1024;
constexpr uint32_t kChunk = 4096;

enum Version { kMpeg1, kMpeg2, kMpeg25 };

struct AudioFrame {
    Version version;
    int layer;  // 1, 2 or 3
    uint32_t sampleRate;
    uint32_t length;
};

// kbit/s by bit rate index 1 to 14.
constexpr uint16_t kBitRates[5][14] = {
    {32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},  // MPEG-1 Layer I
    {32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},     // MPEG-1 Layer II
    {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},      // MPEG-1 Layer III
    {32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},     // MPEG-2/2.5 Layer I
    {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},          // MPEG-2/2.5 Layer II, III
};
constexpr uint32_t kSampleRates[3][3] = {
    {44100, 48000, 32000}, {22050, 24000, 16000}, {11025, 12000, 8000}};

// A frame header with a known length (free-format frames have none and are
// not taken).
bool ParseFrameHeader(const uint8_t* h, AudioFrame& frame) {
    if (h[0] != 0xFF || (h[1] & 0xE0) != 0xE0) return false;
    const int versionBits = (h[1] >> 3) & 3;
    const int layerBits = (h[1] >> 1) & 3;
    const int bitRateIndex = h[2] >> 4;
    const int sampleRateIndex = (h[2] >> 2) & 3;
    if (versionBits == 1 || layerBits == 0 || bitRateIndex == 0 || bitRateIndex == 15 ||
        sampleRateIndex == 3 || (h[3] & 3) == 2) {
        return false;
    }
    frame.version = versionBits == 3 ? kMpeg1 : versionBits == 2 ? kMpeg2 : kMpeg25;
    frame.layer = 4 - layerBits;
    const int table = frame.version == kMpeg1 ? frame.layer - 1 : frame.layer == 1 ? 3 : 4;
    const uint32_t bitRate = kBitRates[table][bitRateIndex - 1] * 1000u;
    frame.sampleRate = kSampleRates[frame.version][sampleRateIndex];
    const uint32_t padding = (h[2] >> 1) & 1;
    if (frame.layer == 1) {
        frame.length = (12 * bitRate / frame.sampleRate + padding) * 4;
    } else {
        const uint32_t factor = frame.layer == 3 && frame.version != kMpeg1 ? 72 : 144;
        frame.length = factor * bitRate / frame.sampleRate + padding;
    }
    return true;
}

// The first MPEG audio frame in [start, end): a header whose frame is
// followed by a second header of the same kind, or ends exactly at `end`.
bool FindAudioFrame(Source& source, uint32_t start, uint32_t end, AudioFrame& found) {
    const uint32_t last = end - start > kSearchLength ? start + kSearchLength : end;
    uint8_t chunk[kChunk];
    uint32_t chunkStart = 0;
    uint32_t chunkLength = 0;
    for (uint32_t at = start; at < last && end - at >= 4; ++at) {
        if (at < chunkStart || at - chunkStart + 4 > chunkLength) {
            chunkStart = at;
            chunkLength = source.ReadAt(at, chunk, kChunk);
            if (chunkLength < 4) return false;
        }
        const uint8_t* header = chunk + (at - chunkStart);
        if (header[0] != 0xFF) {
            // Skip to the next 0xFF of the chunk.
            const void* next = std::memchr(header + 1, 0xFF, chunkLength - (at - chunkStart) - 1);
            at = next ? static_cast<uint32_t>(static_cast<const uint8_t*>(next) - chunk) +
                            chunkStart - 1
                      : chunkStart + chunkLength - 1;
            continue;
        }
        AudioFrame frame{};
        if (!ParseFrameHeader(header, frame)) continue;
        const uint64_t next = uint64_t{at} + frame.length;
        if (next == end) {
            found = frame;
            return true;
        }
        uint8_t second[4];
        AudioFrame following{};
        if (next + 4 <= end && source.ReadAt(static_cast<uint32_t>(next), second, 4) == 4 &&
            ParseFrameHeader(second, following) && following.version == frame.version &&
            following.layer == frame.layer && following.sampleRate == frame.sampleRate) {
            found = frame;
            return true;
        }
    }
    return false;
}

}  // namespace

DetectedType DetectType(Source& source) {
    const uint32_t size = source.Size();
    // The ID3v2 tags at the head, one after another.
    bool id3v2 = false;
    uint32_t audioStart = 0;
    for (uint8_t h[kTagHeaderSize];
         source.ReadAt(audioStart, h, sizeof h) == sizeof h && std::memcmp(h, "ID3", 3) == 0 &&
         h[3] >= 2 && h[3] <= 4 && ((h[6] | h[7] | h[8] | h[9]) & 0x80) == 0;) {
        id3v2 = true;
        const uint64_t tagSize = (uint32_t{h[6]} << 21) | (uint32_t{h[7]} << 14) |
                                 (uint32_t{h[8]} << 7) | h[9];
        const bool footer = h[3] == 4 && (h[5] & 0x10) != 0;
        const uint64_t next = audioStart + kTagHeaderSize + tagSize + (footer ? kTagHeaderSize : 0);
        if (next >= size) {
            audioStart = size;
            break;
        }
        audioStart = static_cast<uint32_t>(next);
    }
    uint8_t magic[3];
    const bool id3v1 = size >= kTrailerSize &&
                       source.ReadAt(size - kTrailerSize, magic, sizeof magic) == sizeof magic &&
                       std::memcmp(magic, "TAG", sizeof magic) == 0;
    const uint32_t audioEnd = id3v1 ? size - kTrailerSize : size;

    AudioFrame frame{};
    if (audioStart >= audioEnd || !FindAudioFrame(source, audioStart, audioEnd, frame)) {
        return {static_cast<uint16_t>(id3v2   ? KZ_HOST_TYPE_ID3V2
                                      : id3v1 ? KZ_HOST_TYPE_ID3V1
                                              : KZ_HOST_TYPE_MPEG1_LAYER3),
                false};
    }
    if (frame.version != kMpeg1) {
        return {static_cast<uint16_t>(KZ_HOST_TYPE_MPEG2_LAYER1 - 1 + frame.layer), true};
    }
    if (frame.layer == 3) {
        return {static_cast<uint16_t>(id3v2   ? KZ_HOST_TYPE_MPEG1_LAYER3_ID3V2
                                      : id3v1 ? KZ_HOST_TYPE_MPEG1_LAYER3_ID3V1
                                              : KZ_HOST_TYPE_MPEG1_LAYER3),
                true};
    }
    return {static_cast<uint16_t>(KZ_HOST_TYPE_MPEG1_LAYER1 - 1 + frame.layer), true};
}

}  // namespace kzhost
