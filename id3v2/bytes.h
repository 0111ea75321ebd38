// Big-endian and synchsafe numbers as ID3v2 stores them.
#ifndef KZ_ID3V2_BYTES_H
#define KZ_ID3V2_BYTES_H

#include <cstdint>

namespace kz {

inline uint32_t BigEndian24(const uint8_t* bytes) {
    return uint32_t{bytes[0]} << 16 | uint32_t{bytes[1]} << 8 | bytes[2];
}

inline uint32_t BigEndian32(const uint8_t* bytes) {
    return uint32_t{bytes[0]} << 24 | BigEndian24(bytes + 1);
}

// Seven bits a byte; the top bit of each byte is dropped, not tested.
inline uint32_t Synchsafe32(const uint8_t* bytes) {
    return uint32_t{bytes[0] & 0x7Fu} << 21 | uint32_t{bytes[1] & 0x7Fu} << 14 |
           uint32_t{bytes[2] & 0x7Fu} << 7 | (bytes[3] & 0x7Fu);
}

}  // namespace kz

#endif  // KZ_ID3V2_BYTES_H
