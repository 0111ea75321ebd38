#include "id3v2/strings.h"

#include "id3v2/frame_body.h"

namespace kz {

uint32_t EmitUtf16Text(const uint8_t* body, uint32_t start, int32_t limit, ProcessContext* ctx) {
    const BodyView view = MakeView(body, limit);
    // The mark must lie wholly inside the body.
    if (uint64_t{start} + 1 >= view.size) return start + 2;
    const bool little = view.data[start] == 0xFF && view.data[start + 1] == 0xFE;
    ctx->utf16Order = little ? kUtf16LittleEndian : kUtf16BigEndian;
    // Offsets of the unit's high and low bytes.
    const uint32_t high = little ? 1 : 0;
    const uint32_t low = 1 - high;
    const CharSink chars(ctx);
    uint32_t pos = start + 2;
    while (uint64_t{pos} + 1 < view.size) {
        const auto unit = static_cast<uint16_t>(view.data[pos + high] << 8 | view.data[pos + low]);
        pos += 2;
        if (unit == 0) break;
        if (unit == 0x000A) {
            OutLineBreak(ctx);
        } else {
            chars(unit);
        }
    }
    return pos;
}

uint32_t EmitEncodedString(const uint8_t* body, int32_t limit, ProcessContext* ctx) {
    const uint32_t number = ctx->frameCount + KZ_FIELD_USER_DEFINED_BASE;
    BeginTag(ctx, SO_TAG_STRING, number, number);
    BodyOutput out(ctx, MakeView(body, limit));
    const uint32_t next = out.EncodedText(1);
    EndTag(ctx, SO_TAG_STRING, SO_TAG_STRING_END_NUMBER);
    return next;
}

}  // namespace kz
