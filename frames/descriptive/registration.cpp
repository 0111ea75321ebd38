// Encryption method (ENCR) and group identification (GRID) registrations:
// owner identifier, a space, the symbol byte.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"
#include "id3v2/frame_id.h"

namespace kz {

void EmitRegistrationFrame(KzStream* stream, uint32_t frameId, int32_t frameSize,
                           ProcessContext* ctx) {
    const uint32_t field = frameId == FrameId("GRID") ? KZ_FIELD_GRID : KZ_FIELD_ENCR;
    EmitFrame(stream, frameSize, ctx, field, [](BodyOutput& out) {
        const uint32_t symbol = out.Latin1String(0);
        out.Space();
        out.Byte(symbol);
    });
}

}  // namespace kz
