// The 10-byte ID3v2 tag header: "ID3", major version, revision, flags and a
// synchsafe size that counts the bytes after the header.
#include "id3v2/tag_header.h"

#include "id3v2/bytes.h"

namespace kz {

TagHeaderStatus ReadTagHeader(KzStream* stream, ProcessContext* ctx) {
    uint8_t header[kTagHeaderSize];
    if (StreamRead(stream, header, sizeof header) < sizeof header || header[0] != 'I' ||
        header[1] != 'D' || header[2] != '3') {
        return kNoTagHeader;
    }
    ctx->versionMajor = header[3];
    ctx->versionRevision = header[4];
    const uint8_t flags = header[5];
    ctx->headerFlags[kUnsynchronisation] = flags & 0x80;
    ctx->headerFlags[kExtendedHeader] = flags & 0x40;
    ctx->headerFlags[kExperimental] = flags & 0x20;
    ctx->headerFlags[kFooter] = flags & 0x10;
    ctx->tagSize = Synchsafe32(header + 6);
    StreamTell(stream, &ctx->tagEnd);
    ctx->tagEnd += ctx->tagSize;
    if (static_cast<uint8_t>(ctx->versionMajor - 2) > 2) return kUnsupportedTagVersion;
    ctx->hasId3v2 = 1;
    return kTagHeaderOk;
}

}  // namespace kz
