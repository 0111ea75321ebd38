// Commercial frame (COMR): price, date, contact URL, received-as byte,
// seller, description and picture MIME type, a space between each.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"

namespace kz {

void EmitCommercialFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_COMR, [](BodyOutput& out) {
        uint32_t pos = out.Latin1String(1);  // price
        out.Space();
        out.Bytes(pos, 8);  // valid until, YYYYMMDD
        pos += 8;
        out.Space();
        pos = out.Latin1String(pos);  // contact URL
        out.Space();
        out.Byte(pos++);  // received as
        out.Space();
        // Seller and description are in the frame's encoding, each followed
        // by a space under the same character set.
        const bool utf16 = out.At(0) != 0;
        if (utf16) out.BeginUtf16();
        for (int text = 0; text < 2; ++text) {
            pos = utf16 ? out.Utf16String(pos) : out.Latin1String(pos);
            out.Space();
        }
        if (utf16) out.EndUtf16();
        out.Latin1String(pos);  // picture MIME type; the logo stays
    });
}

}  // namespace kz
