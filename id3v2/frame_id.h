#ifndef KZ_ID3V2_FRAME_ID_H
#define KZ_ID3V2_FRAME_ID_H

#include <cstdint>

namespace kz {

// A frame identifier as one big-endian number: "TIT2" is 0x54495432, the
// three-letter "TT2" 0x545432, so the two forms never collide.
template <unsigned Length>
constexpr uint32_t FrameId(const char (&id)[Length]) {
    static_assert(Length == 4 || Length == 5, "three- or four-letter identifiers");
    uint32_t value = 0;
    for (unsigned i = 0; i + 1 < Length; ++i) value = value << 8 | static_cast<uint8_t>(id[i]);
    return value;
}

}  // namespace kz

#endif  // KZ_ID3V2_FRAME_ID_H
