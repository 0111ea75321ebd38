// Ownership (OWNE) and terms of use (USER).
#include "frames/handlers.h"
#include "id3v2/frame_body.h"

namespace kz {

void EmitOwnershipFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_OWNE, [](BodyOutput& out) {
        uint32_t pos = out.Latin1String(1);  // price paid
        out.Space();
        out.Bytes(pos, 8);  // date of purchase, YYYYMMDD
        pos += 8;
        out.Space();
        if (out.At(0) != 0) {
            out.BeginUtf16();
            out.Utf16String(pos);
            out.EndUtf16();
        } else {
            // The seller runs to the end of the body; no terminator is sought.
            out.BytesToEnd(pos);
        }
    });
}

void EmitTermsOfUseFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    constexpr uint32_t kText = 4;  // after the encoding byte and language
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_USER, [](BodyOutput& out) {
        if (out.At(0) != 0) {
            out.BeginUtf16();
            out.Utf16String(kText);
            out.EndUtf16();
        } else {
            out.Latin1ToEnd(kText, LineFeed::AsBreak);
        }
    });
}

}  // namespace kz
