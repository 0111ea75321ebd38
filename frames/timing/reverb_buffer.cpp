// Reverb (RVRB, REV) and recommended buffer size (RBUF, BUF): fixed
// layouts, emitted field by field whatever the body's size.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"

namespace kz {

void EmitReverbFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_RVRB, [](BodyOutput& out) {
        // Reverb left and right, bounces, four feedbacks, two premixes.
        out.Groups(0, {2, 2, 1, 1, 1, 1, 1, 1, 1, 1});
    });
}

void EmitBufferSizeFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_RBUF, [](BodyOutput& out) {
        // Buffer size, embedded info flag, offset to next tag.
        out.Groups(0, {3, 1, 4});
    });
}

}  // namespace kz
