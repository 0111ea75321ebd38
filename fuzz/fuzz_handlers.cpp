// Single frame handlers and the string routines on arbitrary bodies of any
// size.  Input bytes:
//   0  which routine (the handlers, then EmitUtf16Text and EmitEncodedString)
//   1  bit 0: declare the body 100 bytes longer than the stream holds (a
//      short read); bit 1: repeat the body until it is above 65,535 bytes
//      (a host block); bit 2: allocations fail; bits 4-7: EmitUtf16Text's
//      start offset
//   2- the body
#include <cstddef>
#include <cstdint>
#include <vector>

#include "frames/handlers.h"
#include "fuzz_host.h"
#include "id3v2/frame_id.h"
#include "id3v2/strings.h"
#include "kz_sys.h"

namespace {

using namespace kzfuzz;
using kz::FrameId;
using kz::ProcessContext;

using SingleHandler = void (*)(KzStream*, int32_t, ProcessContext*);
using MultiHandler = void (*)(KzStream*, uint32_t, int32_t, ProcessContext*);

constexpr SingleHandler kSingleHandlers[] = {
    kz::EmitAudioEncryptionFrame, kz::EmitPictureFrame,     kz::EmitSeekPointIndexFrame,
    kz::EmitPlayCounterFrame,     kz::EmitSeekFrame,        kz::EmitUrlLink,
    kz::EmitSyncedLyricsFrame,    kz::EmitEventTimingFrame, kz::EmitEqualisationFrame,
    kz::EmitEqualisation2Frame,   kz::EmitVolumeAdjustFrame, kz::EmitVolumeAdjust2Frame,
    kz::EmitReverbFrame,          kz::EmitBufferSizeFrame,  kz::EmitLocationTableFrame,
    kz::EmitPositionSyncFrame,    kz::EmitCommercialFrame,  kz::EmitOwnershipFrame,
    kz::EmitTermsOfUseFrame,      kz::EmitEncapsulatedObjectFrame, kz::EmitInvolvedPeopleFrame,
    kz::EmitLinkedInfoFrame,      kz::EmitPopularimeterFrame, kz::EmitPrivateFrame,
    kz::EmitUniqueIdFrame,
};

struct MultiRoute {
    MultiHandler handler;
    uint32_t frameId;
};
constexpr MultiRoute kMultiHandlers[] = {
    {kz::EmitTextFrame, FrameId("TIT2")},          {kz::EmitTextFrame, FrameId("TT2")},
    {kz::EmitCommentFrame, FrameId("COMM")},       {kz::EmitCommentFrame, FrameId("USLT")},
    {kz::EmitUserDefinedFrame, FrameId("TXXX")},   {kz::EmitUserDefinedFrame, FrameId("WXXX")},
    {kz::EmitRegistrationFrame, FrameId("ENCR")},  {kz::EmitRegistrationFrame, FrameId("GRID")},
};

constexpr size_t kSingles = sizeof kSingleHandlers / sizeof kSingleHandlers[0];
constexpr size_t kMultis = sizeof kMultiHandlers / sizeof kMultiHandlers[0];
constexpr size_t kRoutines = kSingles + kMultis + 2;
constexpr uint32_t kLargeBody = 65536 + 100;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size > 0x100000) return 0;
    const size_t routine = data[0] % kRoutines;
    const uint8_t flags = data[1];
    std::vector<uint8_t> body(data + 2, data + size);
    if ((flags & 2) != 0 && !body.empty()) {
        while (body.size() < kLargeBody) body.insert(body.end(), data + 2, data + size);
    }
    const auto bodySize = static_cast<uint32_t>(body.size());
    const int32_t frameSize = static_cast<int32_t>(bodySize + ((flags & 1) != 0 ? 100 : 0));

    const int64_t liveBefore = KzSysLiveBlocks();
    VwContext* context = VwAllocProc();
    if (context == nullptr) Finding();
    FuzzHost host{0, 0, 0, 0, 0};
    RegisterHost(context, &host);
    ProcessContext* ctx = kz::ToContext(context);
    kztest::MemoryStream stream(body);
    if ((flags & 4) != 0) KzSysFailAllocationsAfter(0);

    if (routine < kSingles) {
        kSingleHandlers[routine](stream.stream(), frameSize, ctx);
    } else if (routine < kSingles + kMultis) {
        const MultiRoute& multi = kMultiHandlers[routine - kSingles];
        multi.handler(stream.stream(), multi.frameId, frameSize, ctx);
    } else if (routine == kSingles + kMultis) {
        kz::EmitUtf16Text(body.data(), flags >> 4, static_cast<int32_t>(bodySize), ctx);
    } else {
        kz::EmitEncodedString(body.data(), static_cast<int32_t>(bodySize), ctx);
    }
    // A handler takes its whole body from the stream, however it reads it.
    const bool wholeBody = (flags & 1) != 0 || stream.position() == bodySize;
    if (routine < kSingles + kMultis && !wholeBody) Finding();

    KzSysResetFaults();
    VwFreeProc(context);
    if (KzSysLiveBlocks() != liveBefore) Finding();
    return 0;
}
