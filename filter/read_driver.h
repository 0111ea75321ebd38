#ifndef KZ_FILTER_READ_DRIVER_H
#define KZ_FILTER_READ_DRIVER_H

#include <cstdint>

namespace kz {

// Writes the decimal digits of value, most significant first, and a NUL.
void FormatDecimalByte(uint8_t value, char text[4]);

}  // namespace kz

#endif  // KZ_FILTER_READ_DRIVER_H
