// Opening a stream: the file type's name, the ID3v2 tag header at the start
// and the ID3v1 trailer at the end; and the module's information answers.
#include <cstring>

#include "filter/context.h"
#include "id3v2/tag_header.h"
#include "kz_id3_build_stamp.h"

using kz::ProcessContext;

KZ_EXPORT const VwOverlayRow VwId3OverlayId[VW_FILETYPE_COUNT] = {
    {1706, "\tMPEG-1 audio - Layer 3, ID3v1.x"},
    {1707, "\tMPEG-1 audio - Layer 3, ID3v2.x"},
    {1708, "\tID3 Ver 1.x"},
    {1709, "\tID3 Ver 2.x"},
    {1710, "\tMPEG-1 audio - Layer 3"},
    {1711, "\tMPEG-1 audio - Layer 1"},
    {1712, "\tMPEG-1 audio - Layer 2"},
    {1713, "\tMPEG-2 audio - Layer 1"},
    {1714, "\tMPEG-2 audio - Layer 2"},
    {1715, "\tMPEG-2 audio - Layer 3"},
};

namespace {

constexpr int32_t kTrailerSize = 128;

// True when the stream ends in an ID3v1 trailer ("TAG" 128 bytes before the
// end).  A stream that refuses the seek is too short to hold one.
bool HasTrailer(KzStream* stream) {
    if (kz::StreamSeek(stream, SO_SEEK_END, -kTrailerSize) != 0) return false;
    uint8_t magic[3];
    return kz::StreamRead(stream, magic, sizeof magic) == sizeof magic &&
           std::memcmp(magic, "TAG", sizeof magic) == 0;
}

template <typename Value>
int32_t Answer(void* destination, Value value) {
    std::memcpy(destination, &value, sizeof value);
    return 1;
}

}  // namespace

KZ_EXPORT int32_t VwStreamOpen(KzStream* stream, uint16_t fileType, uint64_t, KzFileInfo* fileInfo,
                               VwContext* context) {
    ProcessContext* ctx = kz::ToContext(context);
    std::memset(ctx, 0, VW_PARSE_STATE_SIZE);
    ctx->fileType = fileType;
    // A host that wants no type name may pass no record.
    if (fileInfo != nullptr) {
        fileInfo->word = VW_FILEINFO_WORD;
        const unsigned row = static_cast<unsigned>(fileType) - VW_FILETYPE_FIRST;
        if (row < VW_FILETYPE_COUNT) std::strcpy(fileInfo->typeName, VwId3OverlayId[row].name + 1);
    }

    kz::StreamSeek(stream, SO_SEEK_SET, 0);
    const kz::TagHeaderStatus status = kz::ReadTagHeader(stream, ctx);
    if (HasTrailer(stream)) ctx->hasId3v1 = 1;
    if (status == kz::kTagHeaderOk || ctx->hasId3v1) return VW_OPEN_OK;
    return VW_OPEN_NOTHING_TO_READ;
}

KZ_EXPORT int32_t VwGetInfo(void* destination, uint16_t infoId) {
    switch (infoId) {
        case VW_INFO_SAVED_STATE_SIZE:
            return Answer(destination, uint16_t{VW_SAVED_STATE_SIZE});
        case VW_INFO_PARSE_STATE_SIZE:
            return Answer(destination, uint16_t{VW_PARSE_STATE_SIZE});
        case 3:
        case 10:
        case 11:
            return Answer(destination, uint16_t{0});
        case 4:
            return Answer(destination, uint16_t{400});
        case 5:
            return Answer(destination, uint16_t{440});
        case VW_INFO_TYPE_COUNT:
            return Answer(destination, uint16_t{VW_FILETYPE_COUNT});
        case VW_INFO_TYPE_IDS: {
            auto* ids = static_cast<uint8_t*>(destination);
            for (const VwOverlayRow& row : VwId3OverlayId) {
                std::memcpy(ids, &row.typeId, sizeof row.typeId);
                ids += sizeof row.typeId;
            }
            return 1;
        }
        case VW_INFO_BUILD_DATE:
            std::memcpy(destination, KZ_ID3_BUILD_DATE, sizeof KZ_ID3_BUILD_DATE);
            return 1;
        case VW_INFO_BUILD_TIME:
            std::memcpy(destination, KZ_ID3_BUILD_TIME, sizeof KZ_ID3_BUILD_TIME);
            return 1;
        case 12:
            return Answer(destination, uint32_t{0x12345678});
        case 13:
            return Answer(destination, uint32_t{0});
        default:
            return 0;
    }
}
