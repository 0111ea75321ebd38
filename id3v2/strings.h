// String output: UTF-16 strings with a byte-order mark, and strings preceded
// by an ID3 text encoding byte.
#ifndef KZ_ID3V2_STRINGS_H
#define KZ_ID3V2_STRINGS_H

#include <cstdint>

#include "filter/context.h"

namespace kz {

// Emits the UTF-16 string whose byte-order mark is at `start` in a body of
// `limit` bytes and records the byte order in utf16Order.  Returns the
// offset after the last unit read (after the zero unit that ended the
// string, if one did).  A mark that does not lie wholly inside the body
// emits nothing, leaves utf16Order alone and gives start + 2.
uint32_t EmitUtf16Text(const uint8_t* body, uint32_t start, int32_t limit, ProcessContext* ctx);

// Emits the string at offset 1 of `body`, whose byte 0 is its text
// encoding byte, inside a SO_TAG_STRING bracket numbered frameCount + 500.
// Returns the offset after its terminator.
uint32_t EmitEncodedString(const uint8_t* body, int32_t limit, ProcessContext* ctx);

}  // namespace kz

#endif  // KZ_ID3V2_STRINGS_H
