// Text information frames: title, artist, album and every other T frame.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"
#include "id3v2/frame_walker.h"

namespace kz {

void EmitTextFrame(KzStream* stream, uint32_t frameId, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, FieldNumberOf(frameId), [frameSize](BodyOutput& out) {
        if (out.At(0) != 0) {
            // Only the first string of a UTF-16 text reaches the host.
            out.BeginUtf16();
            out.Utf16String(1);
            out.EndUtf16();
        } else if (frameSize > kInlineBodyMax) {
            out.BytesToEnd(1);
        } else {
            // Several strings run together: the zero bytes between them go.
            out.NonZeroBytesToEnd(1);
        }
    });
}

}  // namespace kz
