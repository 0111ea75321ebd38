// Involved people list (IPLS, IPL), which has no field of its own, and
// linked information (LINK).
#include "frames/handlers.h"
#include "id3v2/frame_body.h"

namespace kz {

void EmitInvolvedPeopleFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitUnbracketed(stream, frameSize, ctx, [](BodyOutput& out, const FrameBody& body) {
        // Involvement / person pairs, each string followed by a space.  Every
        // string moves the position on, so the loops end.
        if (out.At(0) != 0) {
            out.BeginUtf16();
            for (uint32_t pos = 1; pos < out.Size();) {
                for (int pair = 0; pair < 2; ++pair) {
                    pos = out.Utf16String(pos);
                    out.Space();
                }
            }
            out.EndUtf16();
            return;
        }
        // A host block's list is taken string by string; the inline one pair
        // by pair, so an odd list ends with two spaces there.
        const int stringsPerStep = body.InHostBlock() ? 1 : 2;
        for (uint32_t pos = 1; pos < out.Size();) {
            for (int step = 0; step < stringsPerStep; ++step) {
                pos = out.Latin1String(pos);
                out.Space();
            }
        }
    });
}

void EmitLinkedInfoFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitFrame(stream, frameSize, ctx, KZ_FIELD_LINK, [](BodyOutput& out) {
        out.Bytes(0, 4);  // identifier of the linked frame
        out.Space();
        const uint32_t data = out.Latin1String(4);  // URL
        out.Space();
        out.BytesToEnd(data);  // ID and additional data
    });
}

}  // namespace kz
