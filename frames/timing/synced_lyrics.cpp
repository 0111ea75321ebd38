// Synchronised lyrics (SYLT, SLT): the content descriptor, a space, then
// the lyric items run together without their time stamps.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"

namespace kz {
namespace {

constexpr uint32_t kDescriptorOffset = 6;  // after encoding, language, formats
constexpr uint32_t kTimeStampSize = 4;

// Emits the synchronised items from `start`: each item's text up to its
// terminator, whose time stamp is passed over.  UTF-16 items carry no mark
// of their own and are read in the byte order found at the descriptor.  The
// bound pos + 1 < size keeps the body's last byte (the last byte of a time
// stamp in a well-formed body) from going out as text.
void EmitSyncedText(const uint8_t* body, uint32_t start, int32_t frameSize, ProcessContext* ctx) {
    const BodyView view = MakeView(body, frameSize);
    const bool utf16 = view.At(0) != 0;
    const bool little = ctx->utf16Order == kUtf16LittleEndian;
    uint64_t pos = start;
    while (pos + 1 < view.size) {
        uint16_t c;
        if (utf16) {
            c = view.Unit(static_cast<uint32_t>(pos), little);
            pos += 2;
        } else {
            c = view.At(static_cast<uint32_t>(pos));
            pos += 1;
        }
        if (c == 0) {
            pos += kTimeStampSize;
        } else if (c == 0x0A) {
            OutLineBreak(ctx);
        } else {
            OutChar(ctx, c);
        }
    }
}

}  // namespace

void EmitSyncedLyricsFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_SYLT, [ctx](BodyOutput& out) {
        // The whole field is UTF-16 when the encoding says so.  A line feed
        // in a single-byte descriptor is a character; in the items it is a
        // line break.
        const bool utf16 = out.At(0) != 0;
        if (utf16) out.BeginUtf16();
        const uint32_t items =
            utf16 ? out.Utf16String(kDescriptorOffset) : out.Latin1String(kDescriptorOffset);
        out.Space();
        EmitSyncedText(out.Body().data, items, static_cast<int32_t>(out.Size()), ctx);
        if (utf16) out.EndUtf16();
    });
}

}  // namespace kz
