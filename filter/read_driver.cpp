// The read driver: the section's state machine, from the first ID3v2 tag
// through any further tags to the ID3v1 trailer and the end of content.
#include "filter/read_driver.h"

#include "filter/context.h"
#include "id3v2/bytes.h"
#include "id3v2/frame_walker.h"
#include "id3v2/tag_header.h"

using kz::ProcessContext;

namespace kz {

void FormatDecimalByte(uint8_t value, char text[4]) {
    const int digits = value >= 100 ? 3 : value >= 10 ? 2 : 1;
    text[digits] = '\0';
    for (int i = digits - 1; i >= 0; --i) {
        text[i] = static_cast<char>('0' + value % 10);
        value = static_cast<uint8_t>(value / 10);
    }
}

namespace {

constexpr int32_t kTrailerFieldsSize = 125;  // the trailer after "TAG"

// Offsets within the 125 bytes that follow "TAG".
struct TrailerText {
    uint8_t offset;
    uint8_t size;
    uint16_t fieldNumber;
};
constexpr TrailerText kTitle{0, 30, KZ_FIELD_TIT2};
constexpr TrailerText kTrailerTexts[] = {
    {30, 30, KZ_FIELD_TPE1},
    {60, 30, KZ_FIELD_TALB},
    {90, 4, KZ_FIELD_TYER},
};
constexpr uint8_t kCommentOffset = 94;
constexpr uint8_t kCommentV11Size = 28;
constexpr uint8_t kCommentV10Size = 30;
constexpr uint8_t kTrackMarker = 122;  // zero in an ID3v1.1 trailer
constexpr uint8_t kTrack = 123;
constexpr uint8_t kGenre = 124;
constexpr uint8_t kNoGenre = 255;

void EmitTrailerText(ProcessContext* ctx, uint32_t number, uint32_t fieldNumber,
                     const uint8_t* text, uint8_t size) {
    BeginTag(ctx, SO_TAG_FRAME, number, fieldNumber);
    for (uint8_t i = 0; i < size; ++i) {
        if (text[i] != 0) OutChar(ctx, text[i]);
    }
    EndTag(ctx, SO_TAG_FRAME, number);
}

void EmitTrailerNumber(ProcessContext* ctx, uint32_t number, uint32_t fieldNumber, uint8_t value,
                       bool present) {
    BeginTag(ctx, SO_TAG_FRAME, number, fieldNumber);
    if (present) {
        char digits[4];
        FormatDecimalByte(value, digits);
        for (const char* digit = digits; *digit != '\0'; ++digit) OutChar(ctx, *digit);
    }
    EndTag(ctx, SO_TAG_FRAME, number);
}

// Emits the trailer's fields numbered on from frameCount: the title takes
// frameCount itself, each later field the next number, and frameCount ends
// one past the genre's number.
void EmitTrailer(KzStream* stream, ProcessContext* ctx) {
    uint8_t* const trailer = ctx->frameBuffer;
    StreamSeek(stream, SO_SEEK_END, -kTrailerFieldsSize);
    if (StreamRead(stream, trailer, kTrailerFieldsSize) < kTrailerFieldsSize) {
        CallHost<SOReportFailureRtn, SO_ROUTINE_REPORTFAILURE>(ctx, uint32_t{SO_FAILURE_TRAILER});
        return;
    }
    EmitTrailerText(ctx, ctx->frameCount, kTitle.fieldNumber, trailer + kTitle.offset, kTitle.size);
    for (const TrailerText& field : kTrailerTexts) {
        EmitTrailerText(ctx, ++ctx->frameCount, field.fieldNumber, trailer + field.offset,
                        field.size);
    }
    const bool hasTrack = trailer[kTrackMarker] == 0 && trailer[kTrack] != 0;
    EmitTrailerText(ctx, ++ctx->frameCount, KZ_FIELD_COMM, trailer + kCommentOffset,
                    hasTrack ? kCommentV11Size : kCommentV10Size);
    if (hasTrack) EmitTrailerNumber(ctx, ++ctx->frameCount, KZ_FIELD_TRCK, trailer[kTrack], true);
    EmitTrailerNumber(ctx, ++ctx->frameCount, KZ_FIELD_TCON, trailer[kGenre],
                      trailer[kGenre] != kNoGenre);
    ++ctx->frameCount;
}

// Skips the extended header that starts at the stream's position.  False
// when the tag holds no usable frames: an ID3v2.2 tag with the flag set
// (there it means compression), or a size that cannot be read or used.
bool SkipExtendedHeader(KzStream* stream, ProcessContext* ctx) {
    if (ctx->versionMajor == 2) return false;
    uint8_t sizeBytes[4];
    if (StreamRead(stream, sizeBytes, sizeof sizeBytes) < sizeof sizeBytes) return false;
    if (ctx->versionMajor == 3) {
        // A plain size that does not count its own four bytes.
        const uint32_t size = BigEndian32(sizeBytes);
        uint32_t position = 0;
        StreamTell(stream, &position);
        if (uint64_t{position} + size > 0x7FFFFFFFu) return false;
        StreamSeek(stream, SO_SEEK_CUR, static_cast<int32_t>(size));
        return true;
    }
    // ID3v2.4: a synchsafe size that counts its own four bytes.
    const uint32_t size = Synchsafe32(sizeBytes);
    if (size < sizeof sizeBytes) return false;
    StreamSeek(stream, SO_SEEK_CUR, static_cast<int32_t>(size - sizeof sizeBytes));
    return true;
}

// Where the current tag's header ended, as the stream's tell reported it:
// the tag's start plus 10.
uint32_t HeaderEnd(const ProcessContext* ctx) { return ctx->tagEnd - ctx->tagSize; }

}  // namespace
}  // namespace kz

KZ_EXPORT int32_t VwStreamRead(KzStream* stream, VwContext* context) {
    using namespace kz;
    ProcessContext* ctx = ToContext(context);
    switch (ctx->sectionState) {
        case kFindTagHeader:
        case kTagHeaderRead:
        case kReadingFrames:
        case kReadTrailer:
        case kContentFinished:
            break;
        default:
            return 0;
    }
    StreamSeek(stream, SO_SEEK_SET, static_cast<int32_t>(ctx->tagPos));
    uint16_t status = 0;
    while (status == 0 && ctx->sectionState != kContentFinished) {
        switch (ctx->sectionState) {
            case kFindTagHeader: {
                // Every further tag starts past the start of the one before
                // it, also when a tag overran the file and the stream stayed
                // where its frames ended.  A header that claims otherwise (a
                // stream whose tell misreports, or that never moves) would
                // send the search round in circles, so it counts as no header.
                uint32_t previousHeaderEnd = HeaderEnd(ctx);
                TagHeaderStatus header = ReadTagHeader(stream, ctx);
                while (header == kUnsupportedTagVersion && HeaderEnd(ctx) > previousHeaderEnd) {
                    previousHeaderEnd = HeaderEnd(ctx);
                    StreamSeek(stream, SO_SEEK_SET, static_cast<int32_t>(ctx->tagEnd));
                    header = ReadTagHeader(stream, ctx);
                }
                if (HeaderEnd(ctx) <= previousHeaderEnd) header = kNoTagHeader;
                ctx->sectionState = header == kTagHeaderOk ? kTagHeaderRead
                                    : ctx->hasId3v1        ? kReadTrailer
                                                           : kContentFinished;
                break;
            }
            case kTagHeaderRead:
                ctx->sectionState = kReadingFrames;
                if (ctx->headerFlags[kExtendedHeader] != 0 && !SkipExtendedHeader(stream, ctx)) {
                    StreamSeek(stream, SO_SEEK_SET, static_cast<int32_t>(ctx->tagEnd));
                    ctx->tagPos = ctx->tagEnd;
                    ctx->sectionState = kFindTagHeader;
                }
                break;
            case kReadingFrames:
                status = ReadFrames(stream, ctx);
                if (status == 0) ctx->sectionState = kFindTagHeader;
                break;
            default:  // kReadTrailer
                EmitTrailer(stream, ctx);
                ctx->sectionState = kContentFinished;
                break;
        }
    }
    if (ctx->sectionState == kContentFinished) OutBreak(ctx, SO_BREAK_END);
    return 0;
}
