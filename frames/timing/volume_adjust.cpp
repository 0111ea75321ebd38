// Relative volume adjustment: RVA2 (identification, then 5-byte channel
// records) and RVAD (flags, bits, then 2-byte values).  The widths in the
// bodies size nothing: records and values are read at fixed widths.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"

namespace kz {

void EmitVolumeAdjust2Frame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_RVA2, [](BodyOutput& out) {
        for (uint32_t record = out.Latin1String(0); record < out.Size(); record += 5) {
            // Channel type, adjustment, bits representing peak, peak.
            out.Groups(record, {1, 2, 1, 1});
            out.Space();
        }
    });
}

void EmitVolumeAdjustFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_RVAD, [](BodyOutput& out) {
        out.Groups(0, {1, 1});  // increment/decrement flags, bits used
        out.Space();
        for (uint32_t value = 2; value < out.Size(); value += 2) {
            out.Bytes(value, 2);
            out.Space();
        }
    });
}

}  // namespace kz
