// The frame handlers the walker dispatches to.  Each takes exactly the
// frame's body from the stream and, but for the involved people list,
// brackets its output in one SO_TAG_FRAME field numbered frameCount.
#ifndef KZ_FRAMES_HANDLERS_H
#define KZ_FRAMES_HANDLERS_H

#include <cstdint>

#include "filter/context.h"

namespace kz {

// Frames whose handler serves several identifiers.
void EmitTextFrame(KzStream* stream, uint32_t frameId, int32_t frameSize, ProcessContext* ctx);
void EmitCommentFrame(KzStream* stream, uint32_t frameId, int32_t frameSize, ProcessContext* ctx);
void EmitUserDefinedFrame(KzStream* stream, uint32_t frameId, int32_t frameSize,
                          ProcessContext* ctx);
void EmitRegistrationFrame(KzStream* stream, uint32_t frameId, int32_t frameSize,
                           ProcessContext* ctx);

// Frames the walker emits itself.
void EmitAudioEncryptionFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitPictureFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitSeekPointIndexFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitPlayCounterFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitSeekFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
// The URL of a URL link frame; the walker opens and closes its field.
void EmitUrlLink(KzStream* stream, int32_t frameSize, ProcessContext* ctx);

// Audio adjustment and timing frames.
void EmitSyncedLyricsFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitEventTimingFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitEqualisationFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitEqualisation2Frame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitVolumeAdjustFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitVolumeAdjust2Frame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitReverbFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitBufferSizeFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitLocationTableFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitPositionSyncFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);

// Descriptive, commercial and linking frames.
void EmitCommercialFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitOwnershipFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitTermsOfUseFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitEncapsulatedObjectFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitInvolvedPeopleFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitLinkedInfoFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitPopularimeterFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitPrivateFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
void EmitUniqueIdFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx);

}  // namespace kz

#endif  // KZ_FRAMES_HANDLERS_H
