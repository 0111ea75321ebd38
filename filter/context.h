// The process context: everything the module remembers for one host
// context, in the order the saved state block and the parse state rely on.
#ifndef KZ_FILTER_CONTEXT_H
#define KZ_FILTER_CONTEXT_H

#include <cstddef>
#include <cstdint>

#include "kz_id3.h"
#include "kz_sys.h"

// Marks the names the module exports; everything else is hidden.
#define KZ_EXPORT extern "C" __attribute__((visibility("default")))

namespace kz {

// Section states of the read driver.
enum SectionState : uint16_t {
    kNoSection = 0,
    kFindTagHeader = 1,
    kTagHeaderRead = 2,
    kReadingFrames = 3,
    kReadTrailer = 4,
    kContentFinished = 0xFFFF,
};

enum HeaderFlag { kUnsynchronisation = 0, kExtendedHeader = 1, kExperimental = 2, kFooter = 3 };

constexpr int kRoutineSlots = 148;
constexpr uint32_t kFrameBufferSize = 16384;
// Bodies up to this size use frameBuffer; larger ones a host block.
constexpr int32_t kInlineBodyMax = 16383;

constexpr uint16_t kUtf16LittleEndian = 1;
constexpr uint16_t kUtf16BigEndian = 2;

struct ProcessContext {
    // Saved state block.
    uint32_t savedPos;
    uint16_t sectionState;
    uint16_t reserved1;
    uint32_t tagPos;
    uint32_t frameCount;
    uint8_t versionMajor;
    uint8_t versionRevision;
    uint16_t headerFlags[4];
    uint16_t reserved2;
    uint32_t tagSize;
    uint32_t tagEnd;
    // Rest of the parse state.
    uint16_t fileType;
    uint8_t frameBuffer[kFrameBufferSize];
    uint16_t utf16Order;
    uint16_t hasId3v1;
    uint16_t hasId3v2;
    // Survives VwStreamOpen.
    SORoutine routines[kRoutineSlots];
    uint64_t user1;
    uint64_t user2;
    KzHandle allocHandle;
};

static_assert(offsetof(ProcessContext, tagEnd) + sizeof(uint32_t) == VW_SAVED_STATE_SIZE);
static_assert(offsetof(ProcessContext, hasId3v2) + sizeof(uint16_t) == VW_PARSE_STATE_SIZE);
static_assert(offsetof(ProcessContext, tagPos) == offsetof(VwSavedState, tagPos));
static_assert(offsetof(ProcessContext, frameCount) == offsetof(VwSavedState, frameCount));
static_assert(offsetof(ProcessContext, headerFlags) == offsetof(VwSavedState, headerFlags));
static_assert(offsetof(ProcessContext, tagSize) == offsetof(VwSavedState, tagSize));

inline ProcessContext* ToContext(VwContext* context) {
    return reinterpret_cast<ProcessContext*>(context);
}

// The routine table's fixed order: the identifier held by each slot, 0 for
// the two slots no identifier reaches.  Runs are written first..last.
struct IdentifierRun {
    uint8_t first;
    uint8_t last;
};
constexpr IdentifierRun kSlotOrder[] = {
    {1, 1},     {138, 139}, {129, 129}, {146, 146}, {131, 132}, {2, 26},    {135, 136},
    {27, 30},   {113, 113}, {109, 112}, {31, 35},   {104, 104}, {36, 69},   {122, 122},
    {70, 75},   {114, 114}, {76, 103},  {105, 108}, {115, 118}, {0, 0},     {0, 0},
    {121, 121}, {123, 128}, {130, 130}, {133, 134}, {137, 137}, {140, 140}, {143, 143},
    {141, 142}, {144, 145}, {147, 148},
};

struct SlotMap {
    int16_t slot[SO_ROUTINE_MAX + 1];  // by identifier, -1 when not accepted
};

constexpr SlotMap MakeSlotMap() {
    SlotMap map{};
    for (auto& s : map.slot) s = -1;
    int16_t slot = 0;
    for (const auto& run : kSlotOrder) {
        for (int id = run.first; id <= run.last; ++id) {
            if (id != 0) map.slot[id] = slot;
            ++slot;
        }
    }
    return map;
}
constexpr SlotMap kSlotMap = MakeSlotMap();

// Slot of a routine identifier in the routine table, -1 when the identifier
// is not accepted (0, 119, 120, above 148).
constexpr int RoutineSlot(uint32_t identifier) {
    return identifier <= SO_ROUTINE_MAX ? kSlotMap.slot[identifier] : -1;
}
static_assert(RoutineSlot(1) == 0 && RoutineSlot(2) == 7 && RoutineSlot(121) == 129);
static_assert(RoutineSlot(148) == kRoutineSlots - 1 && RoutineSlot(119) == -1);

// Calls the host routine registered under Identifier with the user pair
// last.  An entry the host never filled (no VwLocalUp) does nothing.
template <typename Routine, int Identifier, typename... Args>
inline auto CallHost(const ProcessContext* ctx, Args... args) {
    constexpr int slot = RoutineSlot(Identifier);
    static_assert(slot >= 0);
    using Result = decltype(Routine{}(args..., uint64_t{}, uint64_t{}));
    const auto routine = reinterpret_cast<Routine>(ctx->routines[slot]);
    if (routine == nullptr) return Result();
    return routine(args..., ctx->user1, ctx->user2);
}

inline void OutChar(ProcessContext* ctx, uint16_t code) {
    CallHost<SOOutCharRtn, SO_ROUTINE_OUTCHAR>(ctx, code);
}

// SOOutChar with its user pair, taken once for a run of characters: calls
// on a context do not overlap, so the routine cannot change during one.
class CharSink {
public:
    explicit CharSink(const ProcessContext* ctx)
        : routine_(reinterpret_cast<SOOutCharRtn>(ctx->routines[RoutineSlot(SO_ROUTINE_OUTCHAR)])),
          user1_(ctx->user1),
          user2_(ctx->user2) {
        if (routine_ == nullptr) routine_ = &Ignore;
    }
    void operator()(uint16_t code) const { routine_(code, user1_, user2_); }

private:
    static void Ignore(uint16_t, uint64_t, uint64_t) {}

    SOOutCharRtn routine_;
    uint64_t user1_;
    uint64_t user2_;
};
inline void OutSpace(ProcessContext* ctx) { OutChar(ctx, 0x20); }
inline void OutLineBreak(ProcessContext* ctx) {
    CallHost<SOOutSpecialRtn, SO_ROUTINE_OUTSPECIAL>(ctx, uint16_t{SO_SPECIAL_LINEBREAK});
}
// The break status: the low 16 bits of what the host returned.
inline uint16_t OutBreak(ProcessContext* ctx, uint16_t kind) {
    return static_cast<uint16_t>(
        CallHost<SOOutBreakRtn, SO_ROUTINE_OUTBREAK>(ctx, kind, uint16_t{0}));
}
inline void BeginTag(ProcessContext* ctx, uint32_t kind, uint32_t number, uint32_t fieldNumber) {
    const KzTagDescriptor descriptor{fieldNumber};
    CallHost<SOBeginTagRtn, SO_ROUTINE_BEGINTAG>(ctx, kind, number, &descriptor);
}
inline void EndTag(ProcessContext* ctx, uint32_t kind, uint32_t number) {
    CallHost<SOEndTagRtn, SO_ROUTINE_ENDTAG>(ctx, kind, number);
}
inline void SetCharSet(ProcessContext* ctx, uint32_t charset) {
    CallHost<SOSetCharSetRtn, SO_ROUTINE_SETCHARSET>(ctx, charset);
}

// Stream operations.  Positions are unsigned 32-bit.
inline uint32_t StreamRead(KzStream* stream, void* buffer, uint32_t count) {
    uint32_t countRead = 0;
    stream->read(stream, buffer, count, &countRead);
    return countRead;
}
inline int32_t StreamSeek(KzStream* stream, uint16_t origin, int32_t offset) {
    return stream->seek(stream, origin, offset);
}
inline void StreamTell(KzStream* stream, uint32_t* position) { stream->tell(stream, position); }

}  // namespace kz

#endif  // KZ_FILTER_CONTEXT_H
