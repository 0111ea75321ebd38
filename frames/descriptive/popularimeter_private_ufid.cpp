// Popularimeter (POPM, POP), private frame (PRIV) and unique file
// identifier (UFID, UFI): a leading single-byte string, then binary bytes
// as characters.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"

namespace kz {

void EmitPopularimeterFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_POPM, [](BodyOutput& out) {
        const uint32_t rating = out.Latin1String(0);  // e-mail address
        out.Space();
        out.Byte(rating);
        out.Space();
        out.BytesToEnd(rating + 1);  // play counter
    });
}

void EmitPrivateFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_PRIV,
              [](BodyOutput& out) { out.Latin1String(0); });  // the data stays
}

void EmitUniqueIdFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_UFID, [](BodyOutput& out) {
        const uint32_t identifier = out.Latin1String(0);  // owner
        out.Space();
        out.BytesToEnd(identifier);
    });
}

}  // namespace kz
