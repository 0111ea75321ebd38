// MPEG location lookup table (MLLT, MLL) and position synchronisation
// (POSS): leading fields apart, the rest of the body run together.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"

namespace kz {

void EmitLocationTableFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_MLLT, [](BodyOutput& out) {
        // Frames, bytes and milliseconds between references; then the two
        // deviation widths and the reference table, unpacked by nobody.
        const uint32_t table = out.Groups(0, {2, 3, 3});
        out.Space();
        out.BytesToEnd(table);
    });
}

void EmitPositionSyncFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_POSS, [](BodyOutput& out) {
        out.Byte(0);  // time stamp format
        out.Space();
        out.BytesToEnd(1);
    });
}

}  // namespace kz
