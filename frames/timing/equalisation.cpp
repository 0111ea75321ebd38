// Equalisation: EQU2 (interpolation, identification, 4-byte points) and
// EQUA/EQU (adjustment bits, then 2-byte units split into flag and
// frequency).
#include "frames/handlers.h"
#include "id3v2/frame_body.h"

namespace kz {

void EmitEqualisation2Frame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_EQU2, [](BodyOutput& out) {
        out.Byte(0);  // interpolation method
        out.Space();
        uint32_t point = out.Latin1String(1);  // identification
        out.Space();
        for (; point < out.Size(); point += 4) {
            out.Bytes(point, 2);  // frequency
            out.Space();
            out.Bytes(point + 2, 2);  // volume adjustment
            out.Space();
        }
    });
}

void EmitEqualisationFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_EQUA, [](BodyOutput& out) {
        out.Byte(0);  // adjustment bits: sizes nothing here
        out.Space();
        for (uint32_t unit = 1; unit < out.Size(); unit += 2) {
            out.Char(out.At(unit) & 0x80);  // increment/decrement flag
            out.Space();
            out.Char(out.At(unit) & 0x7F);
            out.Space();
            out.Byte(unit + 1);
            out.Space();
        }
    });
}

}  // namespace kz
