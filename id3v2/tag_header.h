#ifndef KZ_ID3V2_TAG_HEADER_H
#define KZ_ID3V2_TAG_HEADER_H

#include <cstdint>

#include "filter/context.h"

namespace kz {

enum TagHeaderStatus : uint16_t {
    kTagHeaderOk = 0,
    kNoTagHeader = 9,
    kUnsupportedTagVersion = 14,
};

constexpr uint32_t kTagHeaderSize = 10;

// Reads the 10-byte ID3v2 tag header at the stream's position and records
// version, flags, size and end in the context.
TagHeaderStatus ReadTagHeader(KzStream* stream, ProcessContext* ctx);

}  // namespace kz

#endif  // KZ_ID3V2_TAG_HEADER_H
