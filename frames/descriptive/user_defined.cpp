// User-defined text (TXXX, TXX) and URL (WXXX, WXX) frames: a field named
// by its description, numbered frameCount + 500.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"
#include "id3v2/frame_id.h"
#include "id3v2/strings.h"

namespace kz {

void EmitUserDefinedFrame(KzStream* stream, uint32_t frameId, int32_t frameSize,
                          ProcessContext* ctx) {
    const uint32_t number = ctx->frameCount + KZ_FIELD_USER_DEFINED_BASE;
    const bool url = frameId == FrameId("WXXX");
    EmitFrameField(stream, frameSize, ctx, number, number, [ctx, url](BodyOutput& out) {
        // The description, in a string field of the same number.
        const uint32_t value =
            EmitEncodedString(out.Body().data, static_cast<int32_t>(out.Size()), ctx);
        if (!url && out.At(0) != 0) {
            out.BeginUtf16();
            out.Utf16String(value);
            out.EndUtf16();
        } else {
            // A URL is single-byte whatever the encoding byte says; either
            // runs to the end of the body, zero bytes included.
            out.BytesToEnd(value);
        }
    });
}

}  // namespace kz
