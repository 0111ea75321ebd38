// URL link frames (WCOM, WOAR, ...): the body is the URL, every byte of it.
#include "frames/handlers.h"
#include "id3v2/frame_body.h"

namespace kz {

void EmitUrlLink(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    EmitUnbracketed(stream, frameSize, ctx,
                    [](BodyOutput& out, const FrameBody&) { out.BytesToEnd(0); });
}

}  // namespace kz
