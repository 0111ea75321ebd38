// General encapsulated object (GEOB, GEO): MIME type, file name and
// description; the object itself is never emitted.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"

namespace kz {

void EmitEncapsulatedObjectFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_GEOB, [](BodyOutput& out) {
        uint32_t pos = out.Latin1String(1);  // MIME type
        out.Space();
        // File name and description in the frame's encoding, the space
        // between them under the same character set.
        const bool utf16 = out.At(0) != 0;
        if (utf16) out.BeginUtf16();
        pos = utf16 ? out.Utf16String(pos) : out.Latin1String(pos);
        out.Space();
        if (utf16) {
            out.Utf16String(pos);
            out.EndUtf16();
        } else {
            out.Latin1String(pos);
        }
    });
}

}  // namespace kz
