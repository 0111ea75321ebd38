// Comments (COMM, COM) and unsynchronised lyrics (USLT, ULT): the content
// descriptor, a space, then the text.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"
#include "id3v2/frame_id.h"

namespace kz {

void EmitCommentFrame(KzStream* stream, uint32_t frameId, int32_t frameSize, ProcessContext* ctx) {
    constexpr uint32_t kDescriptor = 4;  // after the encoding byte and language
    const uint32_t field = frameId == FrameId("USLT") ? KZ_FIELD_USLT : KZ_FIELD_COMM;
    EmitFrame(stream, frameSize, ctx, field, [](BodyOutput& out) {
        if (out.At(0) != 0) {
            out.BeginUtf16();
            const uint32_t text = out.Utf16String(kDescriptor);
            out.Space();
            out.Utf16String(text);
            out.EndUtf16();
            return;
        }
        // A line feed is a character in the descriptor, a line break in the
        // text; the text ends at its first zero byte.
        const uint32_t text = out.Latin1String(kDescriptor);
        out.Space();
        out.Latin1String(text, LineFeed::AsBreak);
    });
}

}  // namespace kz
