// The frame walker: reads, counts and dispatches the frames of one tag, and
// offers the host a break after each.
#include "id3v2/frame_walker.h"

#include "frames/handlers.h"
#include "id3v2/bytes.h"
#include "id3v2/frame_id.h"

namespace kz {
namespace {

using SingleHandler = void (*)(KzStream*, int32_t, ProcessContext*);
using MultiHandler = void (*)(KzStream*, uint32_t, int32_t, ProcessContext*);

// The frame table's last column: how a frame is handled.
struct Handling {
    SingleHandler single;
    MultiHandler multi;
    bool urlLink;
    bool idAsRead;  // multi receives the identifier as read, not the four-letter one
};

constexpr Handling Single(SingleHandler handler) { return {handler, nullptr, false, false}; }
constexpr Handling Shared(MultiHandler handler) { return {nullptr, handler, false, false}; }
constexpr Handling Text() { return {nullptr, EmitTextFrame, false, true}; }
constexpr Handling UrlLink() { return {EmitUrlLink, nullptr, true, false}; }

// A frame ID3v2.2 does not have.  No identifier read from a tag is 0: a zero
// first byte is the tag's padding.
constexpr uint32_t kNoThreeLetterForm = 0;

template <unsigned Length>
constexpr uint32_t FourLetterId(const char (&id)[Length]) {
    static_assert(Length == 5, "an ID3v2.3/2.4 identifier has four letters");
    return FrameId(id);
}

template <unsigned Length>
constexpr uint32_t ThreeLetterId(const char (&id)[Length]) {
    static_assert(Length == 1 || Length == 4, "an ID3v2.2 identifier has three letters");
    if constexpr (Length == 1) {
        return kNoThreeLetterForm;
    } else {
        return FrameId(id);
    }
}

struct FrameRow {
    uint32_t frameId;
    uint32_t threeLetterId;
    uint16_t fieldNumber;
    Handling handling;
};

constexpr FrameRow kFrameTable[] = {
#define KZ_FRAME(id, threeLetterId, fieldNumber, label, handling) \
    {FourLetterId(id), ThreeLetterId(threeLetterId), fieldNumber, handling},
#include "id3v2/frame_table.h"
#undef KZ_FRAME
};

// kz_id3_fields.h is written from the same table by the configure step,
// which reads it as text: its rows must be the ones the compiler reads here.
struct FieldRow {
    uint32_t frameId;
    uint32_t threeLetterId;
    uint16_t fieldNumber;
};

constexpr FieldRow kFieldTable[] = {
#define KZ_FIELD_ROW(id, threeLetterId, fieldNumber) \
    {FourLetterId(id), ThreeLetterId(threeLetterId), fieldNumber},
    KZ_ID3_FRAME_TABLE(KZ_FIELD_ROW)
#undef KZ_FIELD_ROW
};

constexpr size_t kRowCount = sizeof kFrameTable / sizeof kFrameTable[0];

constexpr bool FieldTableMatches() {
    if (sizeof kFieldTable / sizeof kFieldTable[0] != kRowCount) return false;
    for (size_t i = 0; i < kRowCount; ++i) {
        if (kFieldTable[i].frameId != kFrameTable[i].frameId ||
            kFieldTable[i].threeLetterId != kFrameTable[i].threeLetterId ||
            kFieldTable[i].fieldNumber != kFrameTable[i].fieldNumber) {
            return false;
        }
    }
    return true;
}
static_assert(FieldTableMatches(), "kz_id3_fields.h holds the rows of id3v2/frame_table.h");

// How a dispatched frame is handled: by a handler of its own, by a handler
// that serves several identifiers (and receives `handlerId`), or as a URL
// link whose field the walker brackets itself.
struct FrameRoute {
    uint32_t frameId;
    uint16_t fieldNumber;  // 0: numbered by the frame (user-defined) or unbracketed
    bool urlLink;
    uint32_t handlerId;
    SingleHandler single;
    MultiHandler multi;
};

// The route of a row's identifier in either form.
constexpr FrameRoute RouteOf(const FrameRow& row, uint32_t frameId) {
    const Handling& handling = row.handling;
    return {frameId, row.fieldNumber, handling.urlLink,
            handling.idAsRead ? frameId : row.frameId, handling.single, handling.multi};
}

constexpr size_t CountThreeLetterForms() {
    size_t count = 0;
    for (const FrameRow& row : kFrameTable) {
        if (row.threeLetterId != kNoThreeLetterForm) ++count;
    }
    return count;
}

constexpr size_t kRouteCount = kRowCount + CountThreeLetterForms();

// Every four-letter identifier, then every three-letter one.
struct RouteTable {
    FrameRoute route[kRouteCount];
};

constexpr RouteTable TableRoutes() {
    RouteTable table{};
    size_t next = 0;
    for (const FrameRow& row : kFrameTable) table.route[next++] = RouteOf(row, row.frameId);
    for (const FrameRow& row : kFrameTable) {
        if (row.threeLetterId != kNoThreeLetterForm) {
            table.route[next++] = RouteOf(row, row.threeLetterId);
        }
    }
    return table;
}
constexpr RouteTable kRoutes = TableRoutes();

// An open-addressing hash of the identifiers: a route is found with one
// multiplication and, almost always, one comparison.
constexpr unsigned kHashBits = 9;
constexpr size_t kHashSlots = size_t{1} << kHashBits;
constexpr uint8_t kEmptySlot = 0xFF;
static_assert(kRouteCount < kEmptySlot && kRouteCount < kHashSlots / 2);

constexpr size_t HashSlot(uint32_t frameId) {
    return (frameId * 0x9E3779B1u) >> (32 - kHashBits);
}

struct RouteHash {
    uint8_t route[kHashSlots];  // index into kRoutes.route, or kEmptySlot
    bool duplicate;             // an identifier with two routes
};

constexpr RouteHash HashRoutes() {
    RouteHash hash{};
    for (auto& slot : hash.route) slot = kEmptySlot;
    for (size_t i = 0; i < kRouteCount; ++i) {
        const uint32_t frameId = kRoutes.route[i].frameId;
        size_t slot = HashSlot(frameId);
        while (hash.route[slot] != kEmptySlot) {
            if (kRoutes.route[hash.route[slot]].frameId == frameId) hash.duplicate = true;
            slot = (slot + 1) % kHashSlots;
        }
        hash.route[slot] = static_cast<uint8_t>(i);
    }
    return hash;
}
constexpr RouteHash kRouteHash = HashRoutes();
static_assert(!kRouteHash.duplicate, "each identifier has one route");

const FrameRoute* FindRoute(uint32_t frameId) {
    for (size_t slot = HashSlot(frameId);; slot = (slot + 1) % kHashSlots) {
        const uint8_t index = kRouteHash.route[slot];
        if (index == kEmptySlot) return nullptr;
        if (kRoutes.route[index].frameId == frameId) return &kRoutes.route[index];
    }
}

void Dispatch(const FrameRoute& route, KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    if (route.multi != nullptr) {
        route.multi(stream, route.handlerId, frameSize, ctx);
    } else if (route.urlLink) {
        const uint32_t number = ctx->frameCount;
        BeginTag(ctx, SO_TAG_FRAME, number, route.fieldNumber);
        EmitUrlLink(stream, frameSize, ctx);
        EndTag(ctx, SO_TAG_FRAME, number);
    } else {
        route.single(stream, frameSize, ctx);
    }
}

// A frame header in the form of the tag's major version.
struct FrameHeader {
    uint32_t frameId;
    uint32_t bodySize;
    uint32_t headerSize;
};

// Reads the next frame header.  False when the walk must end here: a short
// read, or the tag's padding (a zero where an identifier should start).
bool ReadFrameHeader(KzStream* stream, uint8_t versionMajor, FrameHeader* header) {
    uint8_t bytes[10];
    header->headerSize = versionMajor == 2 ? 6 : 10;
    if (StreamRead(stream, bytes, header->headerSize) < header->headerSize || bytes[0] == 0) {
        return false;
    }
    if (versionMajor == 2) {
        header->frameId = BigEndian24(bytes);
        header->bodySize = BigEndian24(bytes + 3);
    } else {
        header->frameId = BigEndian32(bytes);
        header->bodySize = versionMajor == 4 ? Synchsafe32(bytes + 4) : BigEndian32(bytes + 4);
    }
    return true;
}

}  // namespace

uint32_t FieldNumberOf(uint32_t frameId) {
    const FrameRoute* route = FindRoute(frameId);
    return route != nullptr ? route->fieldNumber : 0;
}

uint16_t ReadFrames(KzStream* stream, ProcessContext* ctx) {
    StreamTell(stream, &ctx->tagPos);
    while (ctx->tagPos < ctx->tagEnd) {
        // Counted before it is known whether a frame follows.
        ++ctx->frameCount;
        FrameHeader header;
        if (!ReadFrameHeader(stream, ctx->versionMajor, &header)) break;
        const auto bodySize = static_cast<int32_t>(header.bodySize);
        if (bodySize < 0) break;
        const uint32_t next = ctx->tagPos + header.bodySize + header.headerSize;
        if (static_cast<int32_t>(next) < 0) break;
        ctx->tagPos = next;
        const FrameRoute* route = FindRoute(header.frameId);
        if (route != nullptr) {
            Dispatch(*route, stream, bodySize, ctx);
        } else {
            // Unknown frames use up no number.
            --ctx->frameCount;
            StreamSeek(stream, SO_SEEK_CUR, bodySize);
        }
        const uint16_t status = OutBreak(ctx, SO_BREAK_FRAME);
        if (status != 0) {
            StreamTell(stream, &ctx->tagPos);
            return status;
        }
    }
    StreamSeek(stream, SO_SEEK_SET, static_cast<int32_t>(ctx->tagEnd));
    StreamTell(stream, &ctx->tagPos);
    return 0;
}

}  // namespace kz
