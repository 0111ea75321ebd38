// Frames without a handler of their own: audio encryption, attached
// picture, seek point index, play counter, seek frame.  Numbers in them go
// out as raw bytes, one character per byte.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"

namespace kz {

void EmitAudioEncryptionFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_AENC, [](BodyOutput& out) {
        const uint32_t preview = out.Latin1String(0);  // owner identifier
        out.Space();
        out.Bytes(preview, 2);  // preview start
        out.Space();
        out.Bytes(preview + 2, 2);  // preview length
    });
}

void EmitPictureFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_APIC, [](BodyOutput& out) {
        const uint32_t pictureType = out.Latin1String(1);  // MIME type
        out.Space();
        out.Byte(pictureType);
        out.Space();
        out.EncodedText(pictureType + 1);  // description; the picture data stays
    });
}

void EmitSeekPointIndexFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_ASPI, [](BodyOutput& out) {
        // Data start, data length, point count, bits per point; then the
        // points byte by byte whatever their width.
        const uint32_t points = out.Groups(0, {4, 4, 2, 1});
        out.Space();
        out.SpacedBytesToEnd(points);
    });
}

void EmitPlayCounterFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_PCNT, [](BodyOutput& out) { out.BytesToEnd(0); });
}

void EmitSeekFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_SEEK, [](BodyOutput& out) { out.BytesToEnd(0); });
}

}  // namespace kz
