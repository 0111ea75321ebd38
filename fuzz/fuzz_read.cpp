// The whole host cycle over an arbitrary file: open with any file type,
// start the section (also after "nothing to read"), read until the end.
// The first four input bytes decide how the host behaves:
//   0  file type, 1700 + byte % 20 (inside and outside the known types)
//   1  which frame breaks the host answers with "stop" (bit n mod 8)
//   2  bit 0: save the state after every stopped read and restore it before
//      the next; bit 1: once, restore the state saved after the first stop
//      (the frames after it are delivered again); bits 4-7: the most bytes
//      one stream read delivers (0: no limit)
//   3  allocations fail from the (byte - 1)-th on (0: none fail)
// Findings: a crash or sanitizer report, a leaked host block, a read that
// never ends, or two runs over the same input that differ.
#include <cstddef>
#include <cstdint>

#include "fuzz_host.h"
#include "kz_sys.h"

namespace {

using namespace kzfuzz;

constexpr size_t kControlBytes = 4;
constexpr uint32_t kHostBlockProbe = 70000;

// The control bytes are the first four of the input, as described above.
uint64_t Run(const uint8_t* control, const uint8_t* file, uint32_t size) {
    const bool saveRestore = (control[2] & 1) != 0;
    const bool replayFirstStop = (control[2] & 2) != 0;
    const int64_t liveBefore = KzSysLiveBlocks();
    VwContext* context = VwAllocProc();
    if (context == nullptr) Finding();
    FuzzHost host{0xCBF29CE484222325ull, 0, 0, 0, control[1]};
    RegisterHost(context, &host);
    kztest::MemoryStream stream({file, file + size});
    if (const uint32_t maxRead = control[2] >> 4; maxRead != 0) {
        stream.readLimit = [maxRead](int, uint32_t) { return maxRead; };
    }
    // Large enough for bodies in host blocks (and for bodies declared
    // larger than the file), small enough to keep a run quick.
    KzSysSetBlockLimit(size < kHostBlockProbe ? kHostBlockProbe : size);
    KzSysFailAllocationsAfter(control[3] == 0 ? -1 : control[3] - 1);

    KzFileInfo info{};
    VwStreamOpen(stream.stream(), static_cast<uint16_t>(1700 + control[0] % 20), 0, &info, context);
    VwStreamSection(stream.stream(), context);

    VwSavedState firstStop{};
    bool haveFirstStop = false;
    bool replayed = false;
    // Every read call that does not end the content stops after a frame,
    // and every frame takes at least six bytes of the file.
    const uint64_t maxReads = 4 + 2 * (uint64_t{size} / 6 + 1) * 2;
    uint64_t reads = 0;
    while (host.endBreaks == 0) {
        if (++reads > maxReads) Finding();
        VwStreamRead(stream.stream(), context);
        if (host.endBreaks != 0) break;
        VwSavedState saved;
        VwStreamTell(stream.stream(), context);
        VwGetData(&saved, context);
        if (!haveFirstStop) {
            firstStop = saved;
            haveFirstStop = true;
        }
        if (replayFirstStop && !replayed && reads > 1) {
            replayed = true;
            saved = firstStop;
        }
        if (saveRestore || replayed) {
            VwSetData(&saved, context);
            VwStreamSeek(stream.stream(), context);
        }
    }
    // After the end, a further read only repeats the end break.
    const uint64_t callsAtEnd = host.calls;
    VwStreamRead(stream.stream(), context);
    if (host.calls != callsAtEnd + 1 || host.endBreaks != 2) Finding();

    KzSysResetFaults();
    VwStreamClose(stream.stream(), context);
    VwFreeProc(context);
    if (KzSysLiveBlocks() != liveBefore) Finding();
    return host.hash;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < kControlBytes || size > 0x7FFFFFFF) return 0;
    const uint8_t* file = data + kControlBytes;
    const auto fileSize = static_cast<uint32_t>(size - kControlBytes);
    if (Run(data, file, fileSize) != Run(data, file, fileSize)) Finding();
    return 0;
}
