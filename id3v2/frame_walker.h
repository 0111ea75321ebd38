#ifndef KZ_ID3V2_FRAME_WALKER_H
#define KZ_ID3V2_FRAME_WALKER_H

#include <cstdint>

#include "filter/context.h"

namespace kz {

// Walks the frames of the current tag from the stream's position to
// tagEnd.  Returns 0 when the tag is done (stream and tagPos at tagEnd), or
// the non-zero break status the host answered after a frame (tagPos at the
// next frame).
uint16_t ReadFrames(KzStream* stream, ProcessContext* ctx);

// The field number a frame identifier's bracket carries; 0 for identifiers
// the walker does not dispatch and for those without a fixed number.
uint32_t FieldNumberOf(uint32_t frameId);

}  // namespace kz

#endif  // KZ_ID3V2_FRAME_WALKER_H
