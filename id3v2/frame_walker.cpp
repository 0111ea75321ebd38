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

constexpr FrameRoute Single(uint32_t id, uint16_t field, SingleHandler handler) {
    return {id, field, false, id, handler, nullptr};
}
constexpr FrameRoute Multi(uint32_t id, uint16_t field, uint32_t handlerId, MultiHandler handler) {
    return {id, field, false, handlerId, nullptr, handler};
}
constexpr FrameRoute Text(uint32_t id, uint16_t field) {
    return Multi(id, field, id, EmitTextFrame);
}
constexpr FrameRoute Url(uint32_t id, uint16_t field) {
    return {id, field, true, id, EmitUrlLink, nullptr};
}

constexpr FrameRoute kRoutes[] = {
    // ID3v2.3 and ID3v2.4.
    Single(FrameId("AENC"), KZ_FIELD_AENC, EmitAudioEncryptionFrame),
    Single(FrameId("APIC"), KZ_FIELD_APIC, EmitPictureFrame),
    Single(FrameId("ASPI"), KZ_FIELD_ASPI, EmitSeekPointIndexFrame),
    Multi(FrameId("COMM"), KZ_FIELD_COMM, FrameId("COMM"), EmitCommentFrame),
    Single(FrameId("COMR"), KZ_FIELD_COMR, EmitCommercialFrame),
    Multi(FrameId("ENCR"), KZ_FIELD_ENCR, FrameId("ENCR"), EmitRegistrationFrame),
    Single(FrameId("EQUA"), KZ_FIELD_EQUA, EmitEqualisationFrame),
    Single(FrameId("EQU2"), KZ_FIELD_EQU2, EmitEqualisation2Frame),
    Single(FrameId("ETCO"), KZ_FIELD_ETCO, EmitEventTimingFrame),
    Single(FrameId("GEOB"), KZ_FIELD_GEOB, EmitEncapsulatedObjectFrame),
    Multi(FrameId("GRID"), KZ_FIELD_GRID, FrameId("GRID"), EmitRegistrationFrame),
    Single(FrameId("IPLS"), 0, EmitInvolvedPeopleFrame),
    Single(FrameId("LINK"), KZ_FIELD_LINK, EmitLinkedInfoFrame),
    Single(FrameId("MLLT"), KZ_FIELD_MLLT, EmitLocationTableFrame),
    Single(FrameId("OWNE"), KZ_FIELD_OWNE, EmitOwnershipFrame),
    Single(FrameId("PRIV"), KZ_FIELD_PRIV, EmitPrivateFrame),
    Single(FrameId("PCNT"), KZ_FIELD_PCNT, EmitPlayCounterFrame),
    Single(FrameId("POPM"), KZ_FIELD_POPM, EmitPopularimeterFrame),
    Single(FrameId("POSS"), KZ_FIELD_POSS, EmitPositionSyncFrame),
    Single(FrameId("RBUF"), KZ_FIELD_RBUF, EmitBufferSizeFrame),
    Single(FrameId("RVAD"), KZ_FIELD_RVAD, EmitVolumeAdjustFrame),
    Single(FrameId("RVA2"), KZ_FIELD_RVA2, EmitVolumeAdjust2Frame),
    Single(FrameId("RVRB"), KZ_FIELD_RVRB, EmitReverbFrame),
    Single(FrameId("SEEK"), KZ_FIELD_SEEK, EmitSeekFrame),
    Single(FrameId("SYLT"), KZ_FIELD_SYLT, EmitSyncedLyricsFrame),
    Text(FrameId("TALB"), KZ_FIELD_TALB),
    Text(FrameId("TBPM"), KZ_FIELD_TBPM),
    Text(FrameId("TCOM"), KZ_FIELD_TCOM),
    Text(FrameId("TCON"), KZ_FIELD_TCON),
    Text(FrameId("TCOP"), KZ_FIELD_TCOP),
    Text(FrameId("TDAT"), KZ_FIELD_TDAT),
    Text(FrameId("TDLY"), KZ_FIELD_TDLY),
    Text(FrameId("TENC"), KZ_FIELD_TENC),
    Text(FrameId("TEXT"), KZ_FIELD_TEXT),
    Text(FrameId("TFLT"), KZ_FIELD_TFLT),
    Text(FrameId("TIME"), KZ_FIELD_TIME),
    Text(FrameId("TIPL"), KZ_FIELD_TIPL),
    Text(FrameId("TIT1"), KZ_FIELD_TIT1),
    Text(FrameId("TIT2"), KZ_FIELD_TIT2),
    Text(FrameId("TIT3"), KZ_FIELD_TIT3),
    Text(FrameId("TKEY"), KZ_FIELD_TKEY),
    Text(FrameId("TLAN"), KZ_FIELD_TLAN),
    Text(FrameId("TLEN"), KZ_FIELD_TLEN),
    Text(FrameId("TMCL"), KZ_FIELD_TMCL),
    Text(FrameId("TMOO"), KZ_FIELD_TMOO),
    Text(FrameId("TMED"), KZ_FIELD_TMED),
    Text(FrameId("TOAL"), KZ_FIELD_TOAL),
    Text(FrameId("TOFN"), KZ_FIELD_TOFN),
    Text(FrameId("TOLY"), KZ_FIELD_TOLY),
    Text(FrameId("TOPE"), KZ_FIELD_TOPE),
    Text(FrameId("TORY"), KZ_FIELD_TORY),
    Text(FrameId("TOWN"), KZ_FIELD_TOWN),
    Text(FrameId("TPE1"), KZ_FIELD_TPE1),
    Text(FrameId("TPE2"), KZ_FIELD_TPE2),
    Text(FrameId("TPE3"), KZ_FIELD_TPE3),
    Text(FrameId("TPE4"), KZ_FIELD_TPE4),
    Text(FrameId("TPOS"), KZ_FIELD_TPOS),
    Text(FrameId("TPRO"), KZ_FIELD_TPRO),
    Text(FrameId("TPUB"), KZ_FIELD_TPUB),
    Text(FrameId("TRCK"), KZ_FIELD_TRCK),
    Text(FrameId("TRDA"), KZ_FIELD_TRDA),
    Text(FrameId("TRSN"), KZ_FIELD_TRSN),
    Text(FrameId("TRSO"), KZ_FIELD_TRSO),
    Text(FrameId("TSIZ"), KZ_FIELD_TSIZ),
    Text(FrameId("TSOA"), KZ_FIELD_TSOA),
    Text(FrameId("TSOP"), KZ_FIELD_TSOP),
    Text(FrameId("TSOT"), KZ_FIELD_TSOT),
    Text(FrameId("TSRC"), KZ_FIELD_TSRC),
    Text(FrameId("TSSE"), KZ_FIELD_TSSE),
    Text(FrameId("TSST"), KZ_FIELD_TSST),
    Text(FrameId("TYER"), KZ_FIELD_TYER),
    Multi(FrameId("TXXX"), 0, FrameId("TXXX"), EmitUserDefinedFrame),
    Single(FrameId("UFID"), KZ_FIELD_UFID, EmitUniqueIdFrame),
    Single(FrameId("USER"), KZ_FIELD_USER, EmitTermsOfUseFrame),
    Multi(FrameId("USLT"), KZ_FIELD_USLT, FrameId("USLT"), EmitCommentFrame),
    Url(FrameId("WCOM"), KZ_FIELD_WCOM),
    Url(FrameId("WCOP"), KZ_FIELD_WCOP),
    Url(FrameId("WOAF"), KZ_FIELD_WOAF),
    Url(FrameId("WOAR"), KZ_FIELD_WOAR),
    Url(FrameId("WOAS"), KZ_FIELD_WOAS),
    Url(FrameId("WORS"), KZ_FIELD_WORS),
    Url(FrameId("WPAY"), KZ_FIELD_WPAY),
    Url(FrameId("WPUB"), KZ_FIELD_WPUB),
    Multi(FrameId("WXXX"), 0, FrameId("WXXX"), EmitUserDefinedFrame),
    // ID3v2.2.
    Single(FrameId("CRA"), KZ_FIELD_AENC, EmitAudioEncryptionFrame),
    Multi(FrameId("COM"), KZ_FIELD_COMM, FrameId("COMM"), EmitCommentFrame),
    Single(FrameId("EQU"), KZ_FIELD_EQUA, EmitEqualisationFrame),
    Single(FrameId("ETC"), KZ_FIELD_ETCO, EmitEventTimingFrame),
    Single(FrameId("GEO"), KZ_FIELD_GEOB, EmitEncapsulatedObjectFrame),
    Single(FrameId("IPL"), 0, EmitInvolvedPeopleFrame),
    Single(FrameId("MLL"), KZ_FIELD_MLLT, EmitLocationTableFrame),
    Single(FrameId("CNT"), KZ_FIELD_PCNT, EmitPlayCounterFrame),
    Single(FrameId("POP"), KZ_FIELD_POPM, EmitPopularimeterFrame),
    Single(FrameId("BUF"), KZ_FIELD_RBUF, EmitBufferSizeFrame),
    Single(FrameId("REV"), KZ_FIELD_RVRB, EmitReverbFrame),
    Single(FrameId("SLT"), KZ_FIELD_SYLT, EmitSyncedLyricsFrame),
    Text(FrameId("TAL"), KZ_FIELD_TALB),
    Text(FrameId("TBP"), KZ_FIELD_TBPM),
    Text(FrameId("TCM"), KZ_FIELD_TCOM),
    Text(FrameId("TCO"), KZ_FIELD_TCON),
    Text(FrameId("TCR"), KZ_FIELD_TCOP),
    Text(FrameId("TDA"), KZ_FIELD_TDAT),
    Text(FrameId("TDI"), KZ_FIELD_TDLY),
    Text(FrameId("TEN"), KZ_FIELD_TENC),
    Text(FrameId("TFT"), KZ_FIELD_TFLT),
    Text(FrameId("TIM"), KZ_FIELD_TIME),
    Text(FrameId("TKE"), KZ_FIELD_TKEY),
    Text(FrameId("TLA"), KZ_FIELD_TLAN),
    Text(FrameId("TLE"), KZ_FIELD_TLEN),
    Text(FrameId("TMT"), KZ_FIELD_TMED),
    Text(FrameId("TOA"), KZ_FIELD_TOPE),
    Text(FrameId("TOF"), KZ_FIELD_TOFN),
    Text(FrameId("TOL"), KZ_FIELD_TOLY),
    Text(FrameId("TOR"), KZ_FIELD_TORY),
    Text(FrameId("TOT"), KZ_FIELD_TOAL),
    Text(FrameId("TP1"), KZ_FIELD_TPE1),
    Text(FrameId("TP2"), KZ_FIELD_TPE2),
    Text(FrameId("TP3"), KZ_FIELD_TPE3),
    Text(FrameId("TP4"), KZ_FIELD_TPE4),
    Text(FrameId("TPA"), KZ_FIELD_TPOS),
    Text(FrameId("TPB"), KZ_FIELD_TPUB),
    Text(FrameId("TRD"), KZ_FIELD_TRDA),
    Text(FrameId("TRK"), KZ_FIELD_TRCK),
    Text(FrameId("TRS"), KZ_FIELD_TSRC),
    Text(FrameId("TSI"), KZ_FIELD_TSIZ),
    Text(FrameId("TSS"), KZ_FIELD_TSSE),
    Text(FrameId("TT1"), KZ_FIELD_TIT1),
    Text(FrameId("TT2"), KZ_FIELD_TIT2),
    Text(FrameId("TT3"), KZ_FIELD_TIT3),
    Text(FrameId("TXT"), KZ_FIELD_TEXT),
    Text(FrameId("TYE"), KZ_FIELD_TYER),
    Multi(FrameId("TXX"), 0, FrameId("TXXX"), EmitUserDefinedFrame),
    Single(FrameId("UFI"), KZ_FIELD_UFID, EmitUniqueIdFrame),
    Multi(FrameId("ULT"), KZ_FIELD_USLT, FrameId("USLT"), EmitCommentFrame),
    Url(FrameId("WCM"), KZ_FIELD_WCOM),
    Url(FrameId("WCP"), KZ_FIELD_WCOP),
    Url(FrameId("WAF"), KZ_FIELD_WOAF),
    Url(FrameId("WAR"), KZ_FIELD_WOAR),
    Url(FrameId("WAS"), KZ_FIELD_WOAS),
    Url(FrameId("WPB"), KZ_FIELD_WPUB),
    Multi(FrameId("WXX"), 0, FrameId("WXXX"), EmitUserDefinedFrame),
};

constexpr size_t kRouteCount = sizeof kRoutes / sizeof kRoutes[0];
static_assert(kRouteCount == 84 + 57, "84 four-letter and 57 three-letter identifiers");

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
    uint8_t route[kHashSlots];  // index into kRoutes, or kEmptySlot
    bool duplicate;             // an identifier with two routes
};

constexpr RouteHash HashRoutes() {
    RouteHash hash{};
    for (auto& slot : hash.route) slot = kEmptySlot;
    for (size_t i = 0; i < kRouteCount; ++i) {
        size_t slot = HashSlot(kRoutes[i].frameId);
        while (hash.route[slot] != kEmptySlot) {
            if (kRoutes[hash.route[slot]].frameId == kRoutes[i].frameId) hash.duplicate = true;
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
        if (kRoutes[index].frameId == frameId) return &kRoutes[index];
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
