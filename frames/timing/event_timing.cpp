// Event timing codes (ETCO, ETC): every byte after the time stamp format,
// each followed by a space.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"

namespace kz {

void EmitEventTimingFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_ETCO,
              [](BodyOutput& out) { out.SpacedBytesToEnd(1); });
}

}  // namespace kz
